// Runs the example host as its users do, and looks at what it says.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

namespace fs = std::filesystem;

struct Outcome
{
    int status;
    std::string text; // of both streams, in the order of writing
};

Outcome Host(const std::string& arguments)
{
    const std::string command = std::string(QV_TEST_HOST) + " --state '" + QV_TEST_FOLDER +
                                "/state' " + arguments + " 2>&1";
    std::FILE* const pipe = popen(command.c_str(), "r");
    Outcome outcome{-1, ""};
    char piece[4096];
    std::size_t size = 0;
    while (pipe != nullptr && (size = std::fread(piece, 1, sizeof piece, pipe)) != 0) {
        outcome.text.append(piece, size);
    }
    const int status = pipe != nullptr ? pclose(pipe) : -1;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// The value of the row with that label behind the heading.
std::string Value(const std::string& text, const std::string& heading, const std::string& label)
{
    std::size_t at = text.find(heading + "\n");
    at = at == std::string::npos ? at : text.find("\n    " + label + " ", at);
    if (at == std::string::npos) {
        return "(no " + label + " under " + heading + ")";
    }
    const std::size_t end = text.find('\n', at + 1);
    const std::size_t begin = text.find_first_not_of(' ', at + 5 + label.size());
    return text.substr(begin, end - begin);
}

std::string Write(const std::string& name, const std::string& content)
{
    const std::string path = std::string(QV_TEST_FOLDER) + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

class HostTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::remove_all(QV_TEST_FOLDER);
        fs::create_directories(QV_TEST_FOLDER);
    }

    // The rows of both classes for one text.
    static std::string Counted(const std::string& content, const std::string& label)
    {
        return Value(Host(Write("text", content)).text, "  Example.TextCounter", label);
    }
};

// The values were counted by other means (wc, sort, uniq).
TEST_F(HostTest, DescribesTheTextsThatComeWithIt)
{
    const Outcome outcome = Host(QV_TEST_TEXTS "/*.txt");
    EXPECT_EQ(outcome.status, 0) << outcome.text;
    EXPECT_NE(outcome.text.find("\n4 of 4 files done\n"), std::string::npos) << outcome.text;
    EXPECT_EQ(outcome.text.find("host: "), std::string::npos);
    EXPECT_EQ(Value(outcome.text, "  Example.TextCounter", "created by"), "name");
    EXPECT_EQ(Value(outcome.text, "  Example.WordTable", "created by"), "GUID");
    EXPECT_NE(Value(outcome.text, "  Example.WordTable", "cached look-up").find(" us"),
              std::string::npos);
    const std::string river = outcome.text.substr(outcome.text.find("/river.txt\n"));
    EXPECT_EQ(Value(river, "  Example.TextCounter", "lines"), "11");
    EXPECT_EQ(Value(river, "  Example.TextCounter", "words"), "123");
    EXPECT_EQ(Value(river, "  Example.WordTable", "most frequent"), "the  x16");
    const std::string german = outcome.text.substr(outcome.text.find("/kaffee.txt\n"));
    EXPECT_EQ(Value(german, "  Example.TextCounter", "looks like"), "text in UTF-8");
    EXPECT_EQ(Value(german, "  Example.WordTable", "most frequent"), "brötchen  x3");
    const std::string oneLine = outcome.text.substr(outcome.text.find("/oneline.txt\n"));
    EXPECT_EQ(Value(oneLine, "  Example.TextCounter", "lines"), "1");
}

TEST_F(HostTest, CountsOddTextsRight)
{
    using namespace std::string_literals;
    EXPECT_EQ(Counted("", "looks like"), "nothing: the file is empty");
    EXPECT_EQ(Counted("", "lines"), "0");
    EXPECT_EQ(Counted("a\r\nb\r\n", "lines"), "2");
    EXPECT_EQ(Counted("a\r\nbcd\r\n", "longest line"), "3 characters");
    EXPECT_EQ(Counted("\n\n\n", "lines"), "3");
    EXPECT_EQ(Counted("a\0b"s, "looks like"), "binary data");
    EXPECT_EQ(Counted("\xFF\xC3\xA9\xE2\x82x\xC3", "broken UTF-8"), "3 places");
    EXPECT_EQ(Counted("\xFF\xC3\xA9\xE2\x82x\xC3", "characters"), "2 (1 beyond ASCII)");
    // A character cut between two of the pieces that the host reads.
    EXPECT_EQ(Counted(std::string(256 * 1024 - 1, 'a') + "\xE2\x82\xAC", "characters"),
              "262144 (1 beyond ASCII)");
}

TEST_F(HostTest, WordsAreFoldedCutAndJoined)
{
    const Outcome outcome = Host(Write("words", "Don't DON'T don't ÄPFEL äpfel 'quoted' " +
                                                    std::string(100000, 'w') + " \xFFx\xFF"));
    EXPECT_EQ(outcome.status, 0);
    const std::string heading = "  Example.WordTable";
    EXPECT_EQ(Value(outcome.text, heading, "words of letters"), "8");
    EXPECT_EQ(Value(outcome.text, heading, "different ones"), "5");
    EXPECT_EQ(Value(outcome.text, heading, "most frequent"), "don't  x3");
    EXPECT_NE(outcome.text.find(" äpfel  x2\n"), std::string::npos) << outcome.text;
    EXPECT_NE(outcome.text.find(" quoted  x1\n"), std::string::npos);
    EXPECT_NE(outcome.text.find(" " + std::string(64, 'w') + "  x1\n"), std::string::npos);
}

TEST_F(HostTest, SaysWhatIsWrongAndDoesTheRest)
{
    const std::string good = Write("good", "one two\n");
    const std::string folder = QV_TEST_FOLDER;
    const struct
    {
        std::string arguments;
        int status;
        std::string says;
        bool goodIsDone;
    } rows[] = {
        {folder + "/missing " + good, 1, "missing: cannot be opened: No such file", true},
        {folder + " " + good, 1, "this is a directory", true},
        {"--class No.Such " + good, 1, "class No.Such cannot be used: no such class", true},
        {"--components " + folder + " " + good, 1, "text_counter.so is missing", false},
        {"", 2, "no file to look at (try --help)", false},
        {"--nonsense " + good, 2, "unknown option --nonsense", false},
        {"--class", 2, "--class needs a value", false},
        {"-- -file", 1, "-file: cannot be opened", false},
        {"--help", 0, "Usage: host", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = Host(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_NE(outcome.text.find(row.says), std::string::npos) << outcome.text;
        EXPECT_EQ(Value(outcome.text, "  Example.TextCounter", "class").front() == '{',
                  row.goodIsDone || row.arguments == "-- -file");
        EXPECT_EQ(outcome.text.find("\n" + good + "\n") != std::string::npos, row.goodIsDone);
    }
}

TEST_F(HostTest, OneMissingComponentLeavesTheOther)
{
    const std::string folder = std::string(QV_TEST_FOLDER) + "/components";
    fs::create_directories(folder);
    fs::copy(std::string(QV_TEST_COMPONENTS) + "/word_table.so", folder);
    const Outcome outcome = Host("--components " + folder + " " + Write("good", "one two\n"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.text.find("class Example.TextCounter cannot be used: its library"),
              std::string::npos)
        << outcome.text;
    EXPECT_EQ(Value(outcome.text, "  Example.WordTable", "words of letters"), "2");
}

} // namespace
