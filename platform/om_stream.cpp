#include "platform/om_stream.h"

std::ios_base::openmode om_open_mode(int mode)
{
    std::ios_base::openmode out{};
    if (mode & omIn)
        out |= std::ios_base::in;
    if (mode & omOut)
        out |= std::ios_base::out;
    if (mode & omAte)
        out |= std::ios_base::ate;
    if (mode & omApp)
        out |= std::ios_base::app;
    if (mode & omTrunc)
        out |= std::ios_base::trunc;
    if (mode & omBinary)
        out |= std::ios_base::binary;
    return out;
}

void omIFStream::open(const char* name, int mode)
{
    if (!name) {
        setstate(std::ios_base::failbit);
        return;
    }
    std::ifstream::open(name, om_open_mode(mode) | std::ios_base::in);
}

void omOFStream::open(const char* name, int mode)
{
    if (!name) {
        setstate(std::ios_base::failbit);
        return;
    }
    std::ofstream::open(name, om_open_mode(mode) | std::ios_base::out);
}
