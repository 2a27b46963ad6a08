// Links against an installed sto and checks that the system comes up with
// its own store schema. Exits 0 only if the schema is "store", version 1.
#include <sto.h>

#include <iostream>
#include <sstream>
#include <string>

int main()
{
    (void)sto_system();

    auto schema = sto_schema_sto_schema();

    std::ostringstream name;
    name << schema->name();
    int const version = schema->version();
    std::cout << "store schema: " << name.str() << " version " << version << '\n';

    if (name.str() != "store" || version != 1) {
        std::cerr << "install_consumer: expected store schema \"store\" version 1\n";
        return 1;
    }
    return 0;
}
