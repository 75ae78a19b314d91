// Runs the example host as its users do, and looks at what it says.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

const std::string kFolder = QV_TEST_FOLDER;

std::string Write(const std::string& name, const std::string& content)
{
    std::ofstream(kFolder + "/" + name, std::ios::binary) << content;
    return kFolder + "/" + name;
}

std::string HostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof name);
    return name;
}

TEST(Host, DescribesTextsSaysWhatIsWrongAndDoesTheRest)
{
    std::filesystem::remove_all(kFolder);
    std::filesystem::create_directories(kFolder);
    const std::string good = Write("good", "one two\n");
    const std::string words = Write("words", "Don't DON'T don't " + std::string(100000, 'w'));
    const std::string cut = std::string(256 * 1024 - 1, 'a') + "\xE2\x82\xAC"; // between two reads

    std::string wide("\xFF\xFEx\0", 4); // and pairs of surrogates, one of them between two reads
    while (wide.size() < 800004) {
        wide += "\x3D\xD8\x02\xDE";
    }

    const std::string sham = kFolder + "/sham"; // a folder of components, one of them none
    std::filesystem::create_directories(sham);
    std::filesystem::copy(QV_TEST_COMPONENTS "/word_table.so", sham);
    Write("sham/text_counter.so", "a text");
    const struct
    {
        std::string arguments;
        int status;
        std::string says; // its runs of blanks are one
    } rows[] = {
        // The values were counted by other means (wc, sort, uniq).
        {QV_TEST_TEXTS "/kaffee.txt", 0, "most frequent brötchen x3\n"},
        {"--threads 3 " QV_TEST_TEXTS, 0, "\n6 of 6 files done, by 3 threads ("},
        {QV_TEST_TEXTS, 0, "kaffee.txt\n /usr/bin/wc -w 74\n"},
        {QV_TEST_TEXTS, 0, "\n6 of 6 files\n\nLock"}, // the second process's last word
        {"--threads 2 " + words + " " + words + " && cat " + kFolder + "/state/lockstats.csv", 0,
         "(host: files to do),4,"}, // two files, and the end of the queue for each thread
        {Write("empty", ""), 0, "nothing: the file is empty"},
        {Write("zero", std::string("a\0b", 3)), 0, "looks like binary data"},
        {"--encoding=UTF-8 " + Write("broken", "\xFF\xC3\xA9\xE2\x82x\xC3"), 0,
         "broken UTF-8 3 places"},
        {words, 0, "\n computer " + HostName() + "\n user "},
        {QV_TEST_TEXTS "/menu.txt", 0, "menu.txt\n charset windows-1252 (as it is no UTF-8)\n"},
        {QV_TEST_TEXTS "/menu.txt", 0, "characters 182 (18 beyond ASCII)\n bytes 206\n"},
        {QV_TEST_TEXTS "/tide.txt", 0, "words 20\n characters 111 (35 beyond ASCII)\n"},
        {Write("mark", "\xEF\xBB\xBF"
                       "a"),
         0,
         "charset UTF-8 (by its mark)\n Example.TextCounter\n"
         " lines 1\n longest line 1 characters\n"},
        {Write("pairs", wide), 0, "characters 200001 (200000 beyond ASCII)\n bytes 800001\n"},
        {"--encoding shift_jis " + Write("sjis", "\x82\xA0 \x82\xA2\x82"), 0,
         "words 2\n characters 4 (2 beyond ASCII)\n"},
        {Write("cut", cut), 0, "characters 262144 (1 beyond ASCII)"},
        {"- <" + words, 0, "different ones 2\n"},
        {kFolder + "/missing " + good, 1, "missing: cannot be opened: it is not there"},
        {"--class No.Such " + good, 1, "No.Such cannot be used: no such class"},
        {"--components " + sham + " " + good, 1, sham + "/text_counter.so is no component"},
        {"--stats /dev/full " + good, 1, "lock statistics cannot be written to /dev/full"},
        {"--threads 65 " + good, 2, "--threads needs a number from 1 to 64"},
        {"--threads 2 " + good + " " + words + " && " QV_TEST_HOST " --state '" + kFolder +
             "/state' " + words + " " + words,
         0, "\n2 of 2 files done, by 2 threads ("}, // as remembered
        {"--settings", 0, "\\Example\\Host]\n Last run=20"},
        {"--settings", 0, "\nAll of it is back in the store.\n"},
        {"", 2, "no file to look at (try --help)"},
    };
    const std::string output = kFolder + "/output";
    for (const auto& row : rows) {
        const std::string command = QV_TEST_HOST " --state '" + kFolder + "/state' " +
                                    row.arguments + " >'" + output + "' 2>&1";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.status) << command;
        std::ifstream file(output, std::ios::binary);
        std::string text(std::istreambuf_iterator<char>(file), {});
        const auto areBlanks = [](char a, char b) { return a == ' ' && b == ' '; };
        text.erase(std::unique(text.begin(), text.end(), areBlanks), text.end());
        EXPECT_EQ(text.find("\n" + good + "\n") != std::string::npos, row.status == 1) << command;
        EXPECT_NE(text.find(row.says), std::string::npos) << command << "\n" << text;
    }
}

} // namespace
