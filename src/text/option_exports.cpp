#include <qvcore6/option.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string_view>
#include <utility>

extern "C"
{
    constinit int32_t QVGetOptionError = 1;
    constinit int32_t QVGetOptionIndex = 1;
    constinit int32_t QVGetOptionOption = QV_OPTION_ERROR;
    constinit const char* QVGetOptionArgument = nullptr;
    constinit int32_t QVGetOptionReset = 0;

    constinit const char* QVGetOptionMsgUnrecognized = "Usage: unrecognized option '%s%s'";
    constinit const char* QVGetOptionMsgAmbiguous = "Usage: option '%s%.*s' is ambiguous";
    constinit const char* QVGetOptionMsgNoArgumentAllowed =
        "Usage: option '%s%.*s' doesn't allow an argument";
    constinit const char* QVGetOptionMsgStringRequiresArgument =
        "Usage: option '%s%s' requires an argument";
    constinit const char* QVGetOptionMsgInvalid = "Usage: invalid option -- %c";
    constinit const char* QVGetOptionMsgIllegal = "Usage: illegal option -- %c";
    constinit const char* QVGetOptionMsgCharacterRequiresArgument =
        "Usage: option requires an argument -- %c";
}

namespace
{

constexpr int32_t kNone = -1;

// The rest of the element that is being looked at.
constinit const char* s_place = "";
constinit const char* s_dashPrefix = "";
// The pending block of elements that are no options: its start when there is one, and its end when
// options have followed it.
constinit int32_t s_nonoptStart = kNone;
constinit int32_t s_nonoptEnd = kNone;

void Print(const char* format, ...)
{
    if (QVGetOptionError == 0) {
        return;
    }
    if (format != nullptr) {
        std::va_list arguments;
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

int32_t Fail(int32_t cause)
{
    QVGetOptionOption = cause;
    return QV_OPTION_ERROR;
}

// Swaps the pending block with the options that follow it up to the end.
void Permute(int32_t end, char** argv)
{
    const int32_t nonOptions = s_nonoptEnd - s_nonoptStart;
    const int32_t options = end - s_nonoptEnd;
    const int32_t cycles = std::gcd(nonOptions, options);
    for (int32_t cycle = 0; cycle < cycles; ++cycle) {
        char*& start = argv[s_nonoptEnd + cycle];
        int32_t position = s_nonoptEnd + cycle;
        for (int32_t i = (nonOptions + options) / cycles; i > 0; --i) {
            position += position >= s_nonoptEnd ? -nonOptions : options;
            std::swap(argv[position], start);
        }
    }
}

void ForgetBlock()
{
    s_nonoptStart = s_nonoptEnd = kNone;
}

// Leaves the index at the first argument that is no option.
int32_t End(char** argv)
{
    s_place = "";
    if (s_nonoptEnd != kNone) {
        Permute(QVGetOptionIndex, argv);
        QVGetOptionIndex -= s_nonoptEnd - s_nonoptStart;
    } else if (s_nonoptStart != kNone) {
        QVGetOptionIndex = s_nonoptStart;
    }
    ForgetBlock();
    return -1;
}

bool IsOption(const char* element)
{
    return element[0] == '-' && element[1] != 0;
}

// Finds the next option, and steps behind its first dash. False at the end of the parse.
bool FindOption(int32_t argc, char** argv, bool isPermuting)
{
    for (;; ++QVGetOptionIndex) {
        QVGetOptionReset = 0;
        // A null in front of argc must not be read.
        if (QVGetOptionIndex >= argc || argv[QVGetOptionIndex] == nullptr) {
            return false;
        }
        const char* const element = argv[QVGetOptionIndex];
        if (IsOption(element)) {
            break;
        }
        if (!isPermuting) {
            return false;
        }
        if (s_nonoptStart == kNone) {
            s_nonoptStart = QVGetOptionIndex;
        } else if (s_nonoptEnd != kNone) {
            Permute(QVGetOptionIndex, argv);
            s_nonoptStart = QVGetOptionIndex - (s_nonoptEnd - s_nonoptStart);
            s_nonoptEnd = kNone;
        }
    }
    if (s_nonoptStart != kNone && s_nonoptEnd == kNone) {
        s_nonoptEnd = QVGetOptionIndex;
    }
    s_place = argv[QVGetOptionIndex] + 1;
    if (std::string_view(s_place) == "-") {
        ++QVGetOptionIndex;
        return false;
    }
    return true;
}

struct Name
{
    const char* text;
    std::size_t length;
    int Precision() const { return static_cast<int>(length); }
};

// The record that the name stands for, null if there is none or more than one.
const QVOption* Find(const QVOption* options, const Name& name, bool& isAmbiguous)
{
    const QVOption* match = nullptr;
    isAmbiguous = false;
    for (const QVOption* option = options; option->name != nullptr; ++option) {
        // Most differ in the first character, for which a call would cost more than it tells.
        if (name.length != 0 && (option->name[0] != name.text[0] ||
                                 std::strncmp(option->name, name.text, name.length) != 0)) {
            continue;
        }
        if (option->name[name.length] == 0) {
            isAmbiguous = false;
            return option;
        }
        isAmbiguous = match != nullptr;
        match = match != nullptr ? match : option;
    }
    return isAmbiguous ? nullptr : match;
}

int32_t Match(int32_t argc, char** argv, const QVOption* options, int32_t* longIndex)
{
    const char* const text = std::exchange(s_place, "");
    ++QVGetOptionIndex;
    const char* const equal = std::strchr(text, '=');
    const Name name = {text, equal != nullptr ? static_cast<std::size_t>(equal - text)
                                              : std::strlen(text)};
    bool isAmbiguous;
    const QVOption* const option = Find(options, name, isAmbiguous);
    if (option == nullptr) {
        if (isAmbiguous) {
            Print(QVGetOptionMsgAmbiguous, s_dashPrefix, name.Precision(), text);
        } else {
            Print(QVGetOptionMsgUnrecognized, s_dashPrefix, text);
        }
        return Fail(0);
    }
    if (option->hasArgument == QV_OPTION_NO_ARGUMENT && equal != nullptr) {
        Print(QVGetOptionMsgNoArgumentAllowed, s_dashPrefix, name.Precision(), text);
        return Fail(option->value);
    }
    if (option->hasArgument == QV_OPTION_REQUIRES_ARGUMENT) {
        if (equal != nullptr) {
            QVGetOptionArgument = equal + 1;
        } else if (QVGetOptionIndex < argc && argv[QVGetOptionIndex] != nullptr) {
            QVGetOptionArgument = argv[QVGetOptionIndex++];
        } else {
            Print(QVGetOptionMsgStringRequiresArgument, s_dashPrefix, text);
            return Fail(option->value);
        }
    }
    if (longIndex != nullptr) {
        *longIndex = static_cast<int32_t>(option - options);
    }
    return option->value;
}

// Without a table every character is a bad one, but for a dash that ends its element: it ends the
// parse, as `--` does.
int32_t TakeCharacter(char** argv, bool isPermuting)
{
    const char character = *s_place++;
    const bool isLast = *s_place == 0;
    QVGetOptionIndex += isLast ? 1 : 0;
    if (character == '-' && isLast) {
        return End(argv);
    }
    Print(isPermuting ? QVGetOptionMsgInvalid : QVGetOptionMsgIllegal, character);
    return Fail(character);
}

} // namespace

int32_t QVGetOption(int32_t argc, char** argv, const QVOption* options, int32_t* longIndex)
{
    const bool isPermuting = std::getenv("POSIXLY_CORRECT") == nullptr;
    if (QVGetOptionIndex <= 0) {
        QVGetOptionIndex = 1;
        QVGetOptionReset = 1;
    }
    QVGetOptionArgument = nullptr;
    // An index that somebody has set elsewhere leaves no block that could be moved.
    if (QVGetOptionReset != 0 || QVGetOptionIndex > argc ||
        QVGetOptionIndex < std::max(s_nonoptStart, s_nonoptEnd)) {
        ForgetBlock();
    }
    if ((QVGetOptionReset != 0 || *s_place == 0) && !FindOption(argc, argv, isPermuting)) {
        return End(argv);
    }
    if (options == nullptr) {
        return TakeCharacter(argv, isPermuting);
    }
    const bool hasTwoDashes = *s_place == '-';
    s_dashPrefix = hasTwoDashes ? "--" : "-";
    s_place += hasTwoDashes ? 1 : 0;
    return Match(argc, argv, options, longIndex);
}
