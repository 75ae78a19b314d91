// Text files in UTF-16: the bytes that are written, and the lines that any bytes are read as.
#include <qvcore6/utf16file.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unicode/ustdio.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/icu_memory.h"
#include "support/own_folder.h"

using namespace qv::test;

namespace
{

class Utf16File : public testing::Test
{
protected:
    // In the machine's order, or the other one.
    void Put(const std::u16string& units, bool isSwapped = false)
    {
        std::ofstream file(m_path, std::ios::binary);
        for (const char16_t unit : units) {
            const char bytes[] = {static_cast<char>(unit), static_cast<char>(unit >> 8)};
            file.put(bytes[isSwapped ? 1 : 0]).put(bytes[isSwapped ? 0 : 1]);
        }
    }
    std::u16string Units() const
    {
        std::ifstream file(m_path, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        std::u16string units(bytes.size() / 2, 0);
        bytes.copy(reinterpret_cast<char*>(units.data()), bytes.size());
        return units;
    }
    // All lines, each behind a bar.
    std::u16string Lines(int32_t size)
    {
        std::u16string lines;
        std::vector<char16_t> line(static_cast<std::size_t>(size));
        UFILE* const file = QVFileOpenUTF16(m_path.c_str(), "r");
        while (QVFileGetLineUTF16(line.data(), size, file) != nullptr) {
            lines += u'|';
            lines += line.data();
        }
        QVFileCloseUTF16(file);
        return lines;
    }

    const OwnFolder m_folder;
    const std::string m_path = m_folder.Bytes("text");
    const std::ptrdiff_t m_descriptors = CountDescriptors();
};

TEST_F(Utf16File, ReadsLines)
{
    const struct
    {
        std::u16string units;
        std::u16string lines;
        int32_t size = 100;
    } rows[] = {
        {u"", u""},
        {u"\xFEFF", u""},
        {u"\xFEFF\n\xFEFF\r\n", u"||\xFEFF"}, // a mark in the middle is text
        {u"\xFEFF"
         u"a\rb\nc\r\nd",
         u"|a|b|c|d"},
        {u"\xFEFFone\n\n\r\r\nend\r\n", u"|one||||end"},
        {u"\xFEFF"
         u"a\x2028"
         u"b\x2029"
         u"c\x0085"
         u"d\v\fe",
         u"|a\x2028|b\x2029|c\x0085|d\v|\f|e"},
        {u"\xFEFFlonger\nabcde\r\n", u"|longe|r|abcde|", 6},
        {u"\xFEFFlonger\nabcde\r\n", u"|longer||abcde|", 7}, // CR and LF apart
        {u"\xFEFF\xD83D\xDE00\nx", u"|\xD83D|\xDE00||x", 2},
    };
    for (const auto& row : rows) {
        for (const bool isSwapped : {false, true}) {
            Put(row.units, isSwapped);
            EXPECT_EQ(row.lines, Lines(row.size));
        }
    }
    // A line end at each place of ICU's buffer, of 1,024 units.
    for (std::size_t length = 1020; length < 1030; ++length) {
        const std::u16string line(length, u'x');
        Put(u"\xFEFF" + line + u"\r\n" + line + u"\r\nend");
        EXPECT_EQ(u'|' + line + u'|' + line + u"|end", Lines(3000)) << length;
    }
    Put(u"\xFEFFtext");
    UFILE* const file = QVFileOpenUTF16(m_path.c_str(), "r");
    char16_t line[8] = u"before";
    EXPECT_EQ(nullptr, QVFileGetLineUTF16(line, 0, file));
    EXPECT_EQ(nullptr, QVFileGetLineUTF16(line, -1, file));
    EXPECT_EQ(nullptr, QVFileGetLineUTF16(nullptr, 8, file));
    EXPECT_EQ(nullptr, QVFileGetLineUTF16(line, 8, nullptr));
    EXPECT_EQ(std::u16string(u"before"), line);
    EXPECT_EQ(line, QVFileGetLineUTF16(line, 1, file));
    EXPECT_EQ(u'\0', line[0]);
    EXPECT_EQ(line, QVFileGetLineUTF16(line, 8, file));
    EXPECT_EQ(std::u16string(u"text"), line);
    QVFileCloseUTF16(file);
}

TEST_F(Utf16File, WritesLines)
{
    const std::u16string large(100'000, u'\x20AC');
    for (const char* mode : {"w", "a"}) {
        UFILE* const file = QVFileOpenUTF16(m_path.c_str(), mode);
        EXPECT_EQ(5, QVFileWriteLineUTF16(u"abc", file));
        EXPECT_EQ(2, QVFileWriteLineUTF16(u"", file));
        EXPECT_EQ(100'002, QVFileWriteLineUTF16(large.c_str(), file));
        EXPECT_EQ(0, QVFileWriteLineUTF16(nullptr, file));
        EXPECT_EQ(0, QVFileWriteLineUTF16(u"abc", nullptr));
        QVFileCloseUTF16(file);
    }
    const std::u16string once = u"\xFEFF"
                                u"abc\r\n\r\n" +
                                large + u"\r\n";
    EXPECT_EQ(once + once, Units());
    UFILE* const unused = QVFileOpenUTF16(m_path.c_str(), "w");
    QVFileCloseUTF16(unused);
    EXPECT_EQ(u"", Units());
    QVFileCloseUTF16(nullptr);
    UFILE* const full = QVFileOpenUTF16("/dev/full", "w");
    for (int i = 0; i < 3; ++i) {
        QVFileWriteLineUTF16(large.c_str(), full);
    }
    QVFileCloseUTF16(full);
    EXPECT_EQ(m_descriptors, CountDescriptors());
}

TEST_F(Utf16File, OpensWithoutLeaks)
{
    Put(u"x");
    EXPECT_EQ(nullptr, QVFileOpenUTF16(nullptr, "r"));
    EXPECT_EQ(nullptr, QVFileOpenUTF16(m_path.c_str(), nullptr));
    EXPECT_EQ(nullptr, QVFileOpenUTF16(m_path.c_str(), ""));
    EXPECT_EQ(nullptr, QVFileOpenUTF16(m_path.c_str(), "q"));
    QVFileCloseUTF16(QVFileOpenUTF16(m_path.c_str(), "rbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb"));
    EXPECT_EQ(nullptr, QVFileOpenUTF16(m_folder.Bytes("none").c_str(), "r+b"));
    Put(u"no mark\n", true);
    EXPECT_EQ(u"|no mark",
              Lines(100)); // the more significant byte first; and what ICU keeps is made
    TakeOverIcuMemory();
    UFILE* file = nullptr;
    for (int n = 1; file == nullptr; ++n) {
        g_icuFailing = n;
        file = QVFileOpenUTF16(m_path.c_str(), "r");
        EXPECT_EQ(g_icuFailing == 0, file == nullptr) << n;
        EXPECT_EQ(m_descriptors + (file != nullptr ? 1 : 0), CountDescriptors());
    }
    EXPECT_GT(g_icuFailing, 0);
    g_icuFailing = 0;
    QVFileCloseUTF16(file);
    // A file of a program that has closed its standard streams is none of them, nor its children's.
    Child closed([&] {
        close(0);
        close(2);
        UFILE* const own = QVFileOpenUTF16(m_path.c_str(), "r");
        const int number = own != nullptr ? fileno(u_fgetfile(own)) : -1;
        return number > 2 && (fcntl(number, F_GETFD) & FD_CLOEXEC) != 0 && fcntl(0, F_GETFD) < 0;
    });
    EXPECT_TRUE(closed.Succeeded());
}

} // namespace
