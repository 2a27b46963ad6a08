// Ormid, the platform layer for file streams: standard file streams opened
// by a file name and an integer mode. The file readers take whole files
// through omIFStream; the test reader writes its reports through omOFStream.
//
//   omIFStream in("data.sto", omIn | omBinary);      // mode value 33
//   in.seekg(0, std::ios::end);
//   std::streamoff size = in.tellg();
//
// The mode bits keep the values that files and callers have always passed:
// 1 input, 2 output, 33 binary input.
#pragma once

#include "platform/ut_string.h"

#include <fstream>
#include <ios>
#include <string>

enum omOpenMode {
    omIn = 0x01,
    omOut = 0x02,
    omAte = 0x04,
    omApp = 0x08,
    omTrunc = 0x10,
    omBinary = 0x20,
};

// The standard open mode of a mode value; unknown bits are ignored.
std::ios_base::openmode om_open_mode(int mode);

// An input file stream; good(), seekg(), tellg(), read() and gcount() are
// those of std::ifstream. A file that cannot be opened leaves it not good.
class omIFStream : public std::ifstream {
public:
    omIFStream() = default;
    omIFStream(const char* name, int mode) { open(name, mode); }
    omIFStream(const std::string& name, int mode) { open(name.c_str(), mode); }
    omIFStream(const utString& name, int mode) { open(name.c_str(), mode); }

    using std::ifstream::open;
    // Input is implied whatever the mode says.
    void open(const char* name, int mode);
    void open(const std::string& name, int mode) { open(name.c_str(), mode); }
    void open(const utString& name, int mode) { open(name.c_str(), mode); }
};

// An output file stream, written through as any std::ostream.
class omOFStream : public std::ofstream {
public:
    omOFStream() = default;
    omOFStream(const char* name, int mode) { open(name, mode); }

    using std::ofstream::open;
    // Output is implied whatever the mode says; without omApp or omIn an
    // existing file is truncated.
    void open(const char* name, int mode);
    void open(const std::string& name, int mode) { open(name.c_str(), mode); }
    void open(const utString& name, int mode) { open(name.c_str(), mode); }
};
