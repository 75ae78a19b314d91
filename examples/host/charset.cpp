#include "charset.h"

#include <qvcore6/locale.h>
#include <qvcore6/result.h>

#include <algorithm>
#include <string_view>

#include "handles.h"
#include "utf8.h"

namespace host
{

namespace
{

constexpr char16_t kUtf8[] = u"UTF-8";

struct Mark
{
    std::string_view bytes;
    const char16_t* charset;
};

using namespace std::string_view_literals;

// The longer ones first: one of them begins with another.
constexpr Mark kMarks[] = {{"\xFF\xFE\0\0"sv, u"UTF-32LE"},
                           {"\0\0\xFE\xFF"sv, u"UTF-32BE"},
                           {"\xEF\xBB\xBF"sv, kUtf8},
                           {"\xFF\xFE"sv, u"UTF-16LE"},
                           {"\xFE\xFF"sv, u"UTF-16BE"}};

const Mark* FindMark(std::string_view text)
{
    const auto* const found = std::find_if(std::begin(kMarks), std::end(kMarks), [&](auto& mark) {
        return text.substr(0, mark.bytes.size()) == mark.bytes;
    });
    return found != std::end(kMarks) ? found : nullptr;
}

bool IsUtf8(std::string_view text, bool whole)
{
    Utf8Reader reader = {};
    const bool isBroken = std::any_of(text.begin(), text.end(), [&](char byte) {
        const Utf8Step step = Utf8Read(&reader, static_cast<unsigned char>(byte));
        return step == UTF8_BROKEN || step == UTF8_AGAIN;
    });
    return !isBroken && (!whole || reader.missing == 0);
}

// A user whose own charset is UTF-8 has other texts from elsewhere, most likely from the west.
std::u16string UsersCharset()
{
    QVWChar name[8];
    return QVGetDefaultCharEncoding(name, 8) >= 0 && name != std::u16string(kUtf8)
               ? name
               : u"windows-1252";
}

} // namespace

Charset FindCharset(const std::u16string& told, const std::vector<char>& beginning, bool whole)
{
    const std::string_view text(beginning.data(), beginning.size());
    const Mark* const mark = FindMark(text);
    if (!told.empty()) {
        const bool isMarked = mark != nullptr && mark->charset == told;
        return {told, "as told", isMarked ? mark->bytes.size() : 0};
    }
    if (mark != nullptr) {
        return {mark->charset, "by its mark", mark->bytes.size()};
    }
    if (IsUtf8(text, whole)) {
        return {kUtf8, "by its bytes", 0};
    }
    return {UsersCharset(), "as it is no UTF-8", 0};
}

Utf8Stream::Utf8Stream(const std::u16string& charset)
{
    if (charset != kUtf8) {
        m_from.reset(QVEncToW_Open(charset.c_str()));
        m_to.reset(QVEncFromW_Open(kUtf8));
    }
}

const std::string& Utf8Stream::Convert(const char* bytes, std::size_t size)
{
    m_text.clear();
    if (m_from == nullptr) {
        m_text.assign(bytes, size);
        return m_text;
    }
    const char* const end = bytes + size;
    QVWChar wide[4096];
    QVRESULT result;
    do {
        QVWChar* target = wide;
        result = QVEncToW_Convert(m_from.get(), &bytes, end, &target, std::end(wide));
        Add(wide, target);
    } while (result == QV_E_BUFFER_TOO_SMALL);
    MustWork(result, "the text cannot be converted");
    return m_text;
}

const std::string& Utf8Stream::End()
{
    m_text.clear();
    if (m_from != nullptr) {
        QVWChar wide[64];
        QVWChar* target = wide;
        MustWork(QVEncToW_Flush(m_from.get(), &target, std::end(wide)),
                 "the text's end cannot be converted");
        Add(wide, target);
    }
    return m_text;
}

void Utf8Stream::Add(const QVWChar* wide, const QVWChar* end)
{
    char bytes[4096];
    QVRESULT result;
    do {
        char* target = bytes;
        result = QVEncFromW_Convert(m_to.get(), &wide, end, &target, std::end(bytes));
        m_text.append(bytes, target);
    } while (result == QV_E_BUFFER_TOO_SMALL);
    MustWork(result, "the text cannot be converted to UTF-8");
}

} // namespace host
