// Options of a command line, each row a whole parse as a program sees it.
#include <gtest/gtest.h>
#include <qvcore6/option.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

const QVOption kOptions[] = {{"x", QV_OPTION_NO_ARGUMENT, 1},
                             {"y", QV_OPTION_REQUIRES_ARGUMENT, 2},
                             {"verbose", 0, 3},
                             {"version", 0, 3},
                             {"vers", 0, 4},
                             {"z", QV_OPTION_IGNORES_ARGUMENT, 5},
                             {nullptr, 0, 0}};
const QVOption kNone[] = {{nullptr, 0, 0}};
const QVOption kOne[] = {{"only", 1, 7}, {nullptr, 0, 0}};

// What a parse gives: options with their arguments, causes of errors, then the arguments that are
// no options behind a bar.
std::string Parse(const std::string& line, const QVOption* options = kOptions)
{
    std::istringstream words(line);
    std::vector<std::string> texts{"prog"};
    for (std::string word; words >> word;) {
        texts.push_back(word);
    }
    std::vector<char*> argv;
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    const auto argc = static_cast<int32_t>(texts.size());
    std::string seen;
    QVGetOptionIndex = 0;
    for (int32_t option; (option = QVGetOption(argc, argv.data(), options, nullptr)) != -1;) {
        seen += option == QV_OPTION_ERROR ? "?" + std::to_string(QVGetOptionOption)
                                          : std::to_string(option);
        seen += QVGetOptionArgument != nullptr ? std::string("=") + QVGetOptionArgument + ' ' : " ";
    }
    seen += '|';
    for (int32_t i = QVGetOptionIndex; i < argc; ++i) {
        seen += std::string(" ") + argv[static_cast<std::size_t>(i)];
    }
    EXPECT_EQ(nullptr, argv.back());
    return seen;
}

struct Row
{
    std::string line;
    std::string seen;
    std::string printed = "";
    const QVOption* options = kOptions;
};

void Expect(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        testing::internal::CaptureStderr();
        const std::string seen = Parse(row.line, row.options);
        EXPECT_EQ(row.printed, testing::internal::GetCapturedStderr()) << row.line;
        EXPECT_EQ(row.seen, seen) << row.line;
    }
}

TEST(Option, Parses)
{
    const std::string usage = "Usage: ";
    const std::string ambiguous = usage + "option '--ver' is ambiguous\n";
    Expect({
        {"", "|"},
        {"a --x b --y=1 c", "1 2=1 | a b c"},
        {"a b c -x d e --y f --z=drop g", "1 2=f 5 | a b c d e g"},
        {"-y --x -z -- --x -", "2=--x 5 | --x -"},
        {"a - b -- c", "| a - b c"},
        {"--y= --x", "2= 1 |"},
        {"--verb --vers --versi", "3 4 3 |"},
        {"--ver a", "?0 | a", ambiguous},
        {"--ver=2", "?0 |", ambiguous},
        {"--=1", "?0 |", usage + "option '--' is ambiguous\n"},
        {"--=1 a", "7=1 | a", "", kOne},
        {"-q=1 --xx a", "?0 ?0 | a",
         usage + "unrecognized option '-q=1'\n" + usage + "unrecognized option '--xx'\n"},
        {"--x a", "?0 | a", usage + "unrecognized option '--x'\n", kNone},
        {"a --x=1 b", "?1 | a b", usage + "option '--x' doesn't allow an argument\n"},
        {"a -y", "?2 | a", usage + "option '-y' requires an argument\n"},
        {"b -ac- --c a", "?97 ?99 | b --c a",
         usage + "invalid option -- a\n" + usage + "invalid option -- c\n", nullptr},
    });
    EXPECT_STREQ("Usage: option requires an argument -- %c",
                 QVGetOptionMsgCharacterRequiresArgument);
}

TEST(Option, StopsAtTheFirstOtherArgumentWhereTheEnvironmentSaysSo)
{
    setenv("POSIXLY_CORRECT", "", 1);
    Expect({{"-x a --y=1 b", "1 | a --y=1 b"},
            {"-a b", "?97 | b", "Usage: illegal option -- a\n", nullptr}});
    unsetenv("POSIXLY_CORRECT");
}

TEST(Option, PrintsWhatTheProgramWants)
{
    const auto before = std::exchange(QVGetOptionMsgAmbiguous, "%s%.*s");
    const auto unrecognized = std::exchange(QVGetOptionMsgUnrecognized, nullptr);
    Expect({{"-v -q", "?0 ?0 |", "-v\n\n"}});
    QVGetOptionError = 0;
    Expect({{"-v -q", "?0 ?0 |", ""}});
    QVGetOptionError = 1;
    QVGetOptionMsgAmbiguous = before;
    QVGetOptionMsgUnrecognized = unrecognized;
}

// And from an index that somebody has set elsewhere.
TEST(Option, GoesOnFromItsVariables)
{
    char texts[][8] = {"prog", "a", "b", "-x", "--y", "c"};
    char* argv[7] = {};
    for (int i = 0; i < 6; ++i) {
        argv[i] = texts[i];
    }
    int32_t record = 77;
    testing::internal::CaptureStderr();
    const auto next = [&](int32_t argc = 6) { return QVGetOption(argc, argv, kOptions, &record); };
    QVGetOptionReset = 1;
    QVGetOptionIndex = 4;
    EXPECT_EQ(2, next());
    EXPECT_EQ(1, record);
    EXPECT_EQ(argv[5], QVGetOptionArgument);
    EXPECT_EQ(6, QVGetOptionIndex);
    for (const int32_t index : {1, 2, -5, 1 << 30}) {
        QVGetOptionIndex = 0;
        next(5); // leaves a block that is to be moved
        QVGetOptionIndex = index;
        while (next(5) != -1) {
        }
        EXPECT_EQ(texts[5], argv[5]);
    }
    argv[1] = nullptr; // in front of argc
    QVGetOptionIndex = 0;
    EXPECT_EQ(-1, next());
    EXPECT_EQ(1, QVGetOptionIndex);
    testing::internal::GetCapturedStderr();
}

} // namespace
