// The platform layer for text and files: the Unicode string and its UTF-8
// forms, the Windows-1252 code page (checked against a hand-written table and
// against the C library's converter), the failure flags, the file test, and
// file streams opened by mode value.
#include "platform/om_stream.h"
#include "platform/ve_string.h"

#include <gtest/gtest.h>

#include <iconv.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

std::string output_path(const char* name)
{
    return std::string(STO_TEST_OUTPUT_DIR) + "/" + name;
}

std::u32string codes_of_utf8(const char* text, int& failure)
{
    return veString(veStringUTF8, text, failure).codes();
}

// The C library's reading of one Windows-1252 byte, or -1 when it rejects
// the byte or has no such converter (-2).
long iconv_cp1252(unsigned char byte)
{
    iconv_t cd = iconv_open("UTF-32LE", "CP1252");
    if (cd == reinterpret_cast<iconv_t>(-1))
        return -2;
    char in[1] = {static_cast<char>(byte)};
    unsigned char out[8] = {};
    char* inp = in;
    char* outp = reinterpret_cast<char*>(out);
    size_t inleft = 1;
    size_t outleft = sizeof out;
    size_t r = iconv(cd, &inp, &inleft, &outp, &outleft);
    iconv_close(cd);
    if (r == static_cast<size_t>(-1) || sizeof out - outleft != 4)
        return -1;
    return static_cast<long>(out[0] | (out[1] << 8) | (out[2] << 16) | (static_cast<unsigned long>(out[3]) << 24));
}

}  // namespace

// ---------------------------------------------------------------------------
// veString
// ---------------------------------------------------------------------------

TEST(PlatformIoStrings, Utf8TextBecomesCodesAndComesBackTheSame)
{
    int failure = 7;  // every call assigns the flag
    const char* text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    veString s(veStringUTF8, text, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(s.codes(), (std::u32string{U'A', 0xE9, 0x20AC, 0x1F600}));
    EXPECT_STREQ(s.convert(veStringUTF8), text);

    veString empty(veStringUTF8, "", failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(empty.length(), 0);
    EXPECT_STREQ(empty.convert(veStringUTF8), "");
    veString none(veStringUTF8, nullptr, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(none.length(), 0);
}

TEST(PlatformIoStrings, IllFormedUtf8FailsAndBecomesReplacementCharacters)
{
    struct Case {
        const char* text;
        std::u32string codes;
    };
    const Case cases[] = {
        {"\x80", U"\uFFFD"},                      // lone tail byte
        {"\xC0\x80", U"\uFFFD\uFFFD"},            // overlong zero
        {"\xE0\x80\x80", U"\uFFFD\uFFFD\uFFFD"},  // overlong three bytes
        {"\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"},  // surrogate
        {"\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},  // 0x110000
        {"a\xE2\x82", U"a\uFFFD"},                // cut short: one for the start
        {"\xE2\x82z", U"\uFFFDz"},
        {"\xFF", U"\uFFFD"},
    };
    for (const Case& c : cases) {
        int failure = 0;
        EXPECT_EQ(codes_of_utf8(c.text, failure), c.codes) << c.text;
        EXPECT_NE(failure, 0) << c.text;
    }
}

TEST(PlatformIoStrings, CodesBuildTextAndInvalidCodesFail)
{
    int failure = 7;
    const char32_t codes[] = {0x41, 0xE9, 0x20AC, 0x10FFFF};
    veString s(veStringUTF32, codes, 4, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_STREQ(s.convert(veStringUTF8), "A\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF");

    const unsigned int bad[] = {0x41, 0xD800, 0x110000};
    veString b(veStringUTF32, bad, 3, failure);
    EXPECT_NE(failure, 0);
    EXPECT_EQ(b.codes(), (std::u32string{U'A', 0xFFFD, 0xFFFD}));

    veString none(veStringUTF32, codes, 0, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(none.length(), 0);
}

TEST(PlatformIoStrings, CopiesAndAssignmentKeepTheirOwnUtf8Form)
{
    int failure = 0;
    veString a(veStringUTF8, "\xC3\xA9t\xC3\xA9", failure);
    EXPECT_STREQ(a.convert(veStringUTF8), "\xC3\xA9t\xC3\xA9");  // made and kept
    veString b = a;
    a = veString(veStringUTF8, "x", failure);
    EXPECT_STREQ(a.convert(veStringUTF8), "x");
    EXPECT_STREQ(b.convert(veStringUTF8), "\xC3\xA9t\xC3\xA9");
    EXPECT_TRUE(b == veString(veStringUTF8, "\xC3\xA9t\xC3\xA9", failure));
}

// ---------------------------------------------------------------------------
// Encodings
// ---------------------------------------------------------------------------

TEST(PlatformIoStrings, ChooserAnswersLastingCodePageAndUtf8Encodings)
{
    const veIStringEncoding* mb = nullptr;
    const veIStringEncoding* ut = nullptr;
    {
        veStringEncodingChooser chooser;
        mb = chooser.mb_encoding();
        ut = chooser.ut_encoding();
    }
    ASSERT_NE(mb, nullptr);
    ASSERT_NE(ut, nullptr);
    EXPECT_NE(mb, ut);
    EXPECT_EQ(mb, veStringEncodingChooser::mb_encoding());
    EXPECT_STREQ(mb->name(), "Windows-1252");
    EXPECT_STREQ(ut->name(), "UTF-8");
}

TEST(PlatformIoStrings, Windows1252DecodesItsOwnRangeAndFailsOnUndefinedBytes)
{
    // The C library checks every byte below; these rows hold where it has no
    // converter. 0: undefined, which fails and reads as a replacement character.
    const std::pair<unsigned char, char32_t> rows[] = {
        {0x41, 0x41},   {0x80, 0x20AC}, {0x8A, 0x0160}, {0x9F, 0x0178}, {0xA0, 0x00A0}, {0xFF, 0x00FF},
        {0x81, 0},      {0x8D, 0},      {0x8F, 0},      {0x90, 0},      {0x9D, 0},
    };
    const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
    for (auto [byte, code] : rows) {
        char text[4] = {'a', static_cast<char>(byte), 'b', 0};
        int failure = 7;
        veString s = cp->decode(text, failure);
        EXPECT_EQ(failure != 0, code == 0) << int(byte);
        EXPECT_EQ(s.codes(), (std::u32string{U'a', code ? code : 0xFFFD, U'b'})) << int(byte);
    }
}

TEST(PlatformIoStrings, Windows1252AgreesWithTheCLibraryOnEveryByte)
{
    if (iconv_cp1252('A') == -2)
        GTEST_SKIP() << "no CP1252 converter in the C library";
    const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
    for (int b = 1; b < 256; ++b) {
        char text[2] = {static_cast<char>(b), 0};
        int failure = 0;
        veString s = cp->decode(text, failure);
        long expected = iconv_cp1252(static_cast<unsigned char>(b));
        if (expected < 0) {
            EXPECT_NE(failure, 0) << b;
        } else {
            EXPECT_EQ(failure, 0) << b;
            EXPECT_EQ(s.codes(), std::u32string(1, static_cast<char32_t>(expected))) << b;
        }
    }
}

TEST(PlatformIoStrings, Windows1252RoundTripsEveryDefinedByte)
{
    const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
    std::string all;
    for (int b = 1; b < 256; ++b)
        if (b != 0x81 && b != 0x8D && b != 0x8F && b != 0x90 && b != 0x9D)
            all += static_cast<char>(b);
    int failure = 7;
    veString s = cp->decode(all.c_str(), failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(s.length(), static_cast<int>(all.size()));
    failure = 7;
    utString back = cp->encode(s, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(back.str(), all);
}

TEST(PlatformIoStrings, Windows1252FailsOnCharactersItCannotRepresent)
{
    const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
    // U+0081 is a C1 control: its byte is undefined, so it cannot go there.
    for (char32_t c : {char32_t(0x4E2D), char32_t(0x0081), char32_t(0x0100), char32_t(0x1F600)}) {
        const char32_t codes[] = {U'a', c};
        int failure = 0;
        veString s(veStringUTF32, codes, 2, failure);
        ASSERT_EQ(failure, 0);
        utString out = cp->encode(s, failure);
        EXPECT_NE(failure, 0) << unsigned(c);
        EXPECT_EQ(out.str(), "a?") << unsigned(c);
    }
}

TEST(PlatformIoStrings, Utf8EncodingDecodesStrictlyAndEncodesEverything)
{
    const veIStringEncoding* ut = veStringEncodingChooser::ut_encoding();
    int failure = 7;
    veString s = ut->decode("\xE2\x82\xAC", failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(s.codes(), std::u32string(1, 0x20AC));
    utString out = ut->encode(s, failure);
    EXPECT_EQ(failure, 0);
    EXPECT_EQ(out.str(), "\xE2\x82\xAC");

    ut->decode("\xE9", failure);
    EXPECT_NE(failure, 0);

    // A U+0000 inside the text survives encoding.
    const char32_t codes[] = {U'a', 0, U'b'};
    veString z(veStringUTF32, codes, 3, failure);
    EXPECT_EQ(ut->encode(z, failure).length(), 3);
    EXPECT_EQ(failure, 0);
}

// ---------------------------------------------------------------------------
// Files and streams
// ---------------------------------------------------------------------------

TEST(PlatformIoFiles, ModeValuesMapToStandardOpenModes)
{
    EXPECT_EQ(om_open_mode(1), std::ios_base::in);
    EXPECT_EQ(om_open_mode(2), std::ios_base::out);
    EXPECT_EQ(om_open_mode(33), std::ios_base::in | std::ios_base::binary);
    EXPECT_EQ(om_open_mode(omOut | omTrunc | omBinary),
              std::ios_base::out | std::ios_base::trunc | std::ios_base::binary);
    EXPECT_EQ(om_open_mode(omApp | omAte), std::ios_base::app | std::ios_base::ate);
}

TEST(PlatformIoFiles, MissingFileLeavesTheInputStreamNotGood)
{
    std::string missing = output_path("platform_io_no_such_file.sto");
    std::remove(missing.c_str());
    EXPECT_FALSE(omIFStream(missing.c_str(), 1).good());
    EXPECT_FALSE(omIFStream(missing, 33).good());
    EXPECT_FALSE(omIFStream(utString(missing.c_str()), 33).good());
    EXPECT_FALSE(omIFStream(static_cast<const char*>(nullptr), 1).good());
    EXPECT_FALSE(omIFStream(STO_TEST_OUTPUT_DIR "/no_such_folder/x.sto", 1).good());
}

TEST(PlatformIoFiles, BinaryFileWrittenByOutputStreamReadsBackByteForByte)
{
    std::string path = output_path("platform_io_bytes.bin");
    std::string bytes;
    for (int round = 0; round < 3; ++round)
        for (int b = 0; b < 256; ++b)
            bytes += static_cast<char>(b);  // zeros, CR LF and 0x1A included
    {
        omOFStream out;
        out.open(path.c_str(), omOut | omBinary);
        ASSERT_TRUE(out.good());
        std::ostream& as_ostream = out;
        as_ostream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        ASSERT_TRUE(out.good());
    }

    omIFStream in(path.c_str(), 33);
    ASSERT_TRUE(in.good());
    in.seekg(0, std::ios::end);
    std::streamoff size = in.tellg();
    EXPECT_EQ(size, static_cast<std::streamoff>(bytes.size()));
    in.seekg(0, std::ios::beg);
    EXPECT_EQ(std::streamoff(in.tellg()), 0);
    std::vector<char> buffer(bytes.size() + 10);
    in.read(buffer.data(), static_cast<std::streamsize>(size));
    EXPECT_EQ(in.gcount(), size);
    EXPECT_TRUE(in.good());
    EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(size)), bytes);

    // Asking for more than is left delivers what there is.
    in.seekg(-5, std::ios::end);
    in.read(buffer.data(), 10);
    EXPECT_EQ(in.gcount(), 5);
    EXPECT_FALSE(in.good());
    EXPECT_EQ(std::string(buffer.data(), 5), bytes.substr(bytes.size() - 5));
}

TEST(PlatformIoFiles, OutputModeTwoTruncatesAndWritesLikeAnyOstream)
{
    std::string path = output_path("platform_io_text.txt");
    {
        omOFStream out;
        out.open(path, 2);
        out << "a much longer first text\n";
    }
    {
        omOFStream out;
        out.open(utString(path.c_str()), 2);
        ASSERT_TRUE(out.good());
        std::ostream& os = out;
        os << "Error on line " << 3 << ": x\n";
    }
    omIFStream in(path, 1);
    ASSERT_TRUE(in.good());
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "Error on line 3: x");
    EXPECT_FALSE(std::getline(in, line));

    omOFStream nowhere;
    nowhere.open(STO_TEST_OUTPUT_DIR "/no_such_folder/x.txt", 2);
    EXPECT_FALSE(nowhere.good());
}

TEST(PlatformIoFiles, CheckFileExistsSeesFilesButNotFoldersOrMissingNames)
{
    std::string path = output_path("platform_io_exists.txt");
    {
        omOFStream out(path.c_str(), 2);
        out << "x";
    }
    EXPECT_NE(veFileFinder::check_file_exists(path.c_str()), 0);
    EXPECT_NE(veFileFinder::check_file_exists(path), 0);
    EXPECT_NE(veFileFinder::check_file_exists(utString(path.c_str())), 0);

    std::remove(path.c_str());
    EXPECT_EQ(veFileFinder::check_file_exists(path), 0);
    EXPECT_EQ(veFileFinder::check_file_exists(STO_TEST_OUTPUT_DIR), 0);
    EXPECT_EQ(veFileFinder::check_file_exists(""), 0);
    EXPECT_EQ(veFileFinder::check_file_exists(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(veFileFinder::check_file_exists(utString()), 0);
}
