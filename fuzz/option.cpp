// Command lines of any elements, one a line: what a parse gives and the order that it leaves are
// those of a plain pass over the elements that moves nothing.
#include <qvcore6/option.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr QVOption kOptions[] = {{"a", 0, 10},    {"ab", 1, 11}, {"abc", 2, 12},
                                 {"b=c", 1, 13},  {"-d", 0, 14}, {"long-name", 1, 15},
                                 {"long", 0, 16}, {"", 0, 17},   {nullptr, 0, 0}};

struct Step
{
    int32_t result;
    int32_t cause;
    std::string argument;
    bool operator==(const Step&) const = default;
};

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// The record that a name means; -1 without one.
int Meant(std::string_view name)
{
    int found = -1;
    int partial = 0;
    for (int i = 0; kOptions[i].name != nullptr; ++i) {
        const std::string_view full = kOptions[i].name;
        if (full == name) {
            return i;
        }
        if (full.starts_with(name) && partial++ == 0) {
            found = i;
        }
    }
    return partial == 1 ? found : -1;
}

// All steps, and the elements in the order that the parse is to leave.
std::vector<Step> PlainParse(const std::vector<std::string>& elements,
                             std::vector<std::string>& order, std::size_t& rest)
{
    std::vector<Step> steps;
    std::vector<std::string> others;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const std::string_view element = elements[i];
        if (element.size() < 2 || element[0] != '-') {
            others.emplace_back(element);
            continue;
        }
        order.emplace_back(element);
        if (element == "--") {
            others.insert(others.end(), elements.begin() + std::ptrdiff_t(i) + 1, elements.end());
            break;
        }
        const std::string_view text = element.substr(element[1] == '-' ? 2 : 1);
        const std::size_t equal = text.find('=');
        const int record = Meant(text.substr(0, equal));
        if (record < 0) {
            steps.push_back({QV_OPTION_ERROR, 0, ""});
            continue;
        }
        const QVOption& option = kOptions[record];
        const bool hasEqual = equal != text.npos;
        const bool isMissing = option.hasArgument == 1 && !hasEqual && i + 1 == elements.size();
        if (isMissing || (option.hasArgument == 0 && hasEqual)) {
            steps.push_back({QV_OPTION_ERROR, option.value, ""});
        } else if (option.hasArgument == 1 && !hasEqual) {
            order.push_back(elements[++i]);
            steps.push_back({option.value, 0, elements[i]});
        } else {
            steps.push_back({option.value, 0,
                             std::string(option.hasArgument == 1 ? text.substr(equal + 1) : "")});
        }
    }
    rest = order.size();
    order.insert(order.end(), others.begin(), others.end());
    return steps;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> elements{""};
    for (const char character : input) {
        if (character == '\n') {
            elements.emplace_back();
        } else if (character != 0) {
            elements.back() += character;
        }
    }
    std::vector<std::string> order;
    std::size_t rest = 0;
    const std::vector<Step> steps = PlainParse(elements, order, rest);

    std::vector<std::string> texts = elements;
    std::vector<char*> argv{nullptr}; // the program's name is not read
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    const auto argc = static_cast<int32_t>(argv.size()) - 1;
    QVGetOptionError = 0;
    for (const QVOption* options : {kOptions, static_cast<const QVOption*>(nullptr)}) {
        QVGetOptionIndex = 0;
        std::size_t count = 0;
        for (int32_t result; (result = QVGetOption(argc, argv.data(), options, nullptr)) != -1;) {
            const char* const argument = QVGetOptionArgument;
            Require(options == nullptr || count < steps.size());
            Require(options == nullptr ||
                    steps[count] == Step{result, result == QV_OPTION_ERROR ? QVGetOptionOption : 0,
                                         argument != nullptr ? argument : ""});
            ++count;
            Require(count <= input.size());
        }
        if (options != nullptr) {
            Require(count == steps.size());
            Require(QVGetOptionIndex == static_cast<int32_t>(rest) + 1);
            for (std::size_t i = 0; i < order.size(); ++i) {
                Require(order[i] == argv[i + 1]);
            }
        }
    }
    return 0;
}
