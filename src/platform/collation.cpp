#include "platform/collation.h"

#include <cwchar>
#include <cwctype>
#include <memory>
#include <new>
#include <string_view>

#include "platform/error.h"
#include "platform/wide_text.h"

namespace qv::platform
{

namespace
{

// A text in lower case, in the units of the C library.
class LowerText
{
public:
    explicit LowerText(std::u16string_view text)
    {
        if (text.size() >= kNear) {
            m_far.reset(new (std::nothrow) wchar_t[text.size() + 1]);
        }
        m_text = text.size() < kNear ? m_near : m_far.get();
        if (m_text != nullptr) {
            Fill(text, m_text);
        }
    }
    LowerText(const LowerText&) = delete;
    LowerText& operator=(const LowerText&) = delete;

    // Null without memory.
    const wchar_t* Get() const { return m_text; }

private:
    static constexpr std::size_t kNear = 256;

    static void Fill(std::u16string_view text, wchar_t* out)
    {
        while (!text.empty()) {
            std::uint32_t point = text[0];
            const bool isPair =
                text.size() > 1 && (text[0] & 0xFC00) == 0xD800 && (text[1] & 0xFC00) == 0xDC00;
            if (isPair) {
                point = 0x10000u + ((text[0] & 0x3FFu) << 10) + (text[1] & 0x3FFu);
            }
            *out++ = static_cast<wchar_t>(std::towlower(point));
            text.remove_prefix(isPair ? 2 : 1);
        }
        *out = 0;
    }

    wchar_t m_near[kNear];
    std::unique_ptr<wchar_t[]> m_far;
    wchar_t* m_text;
};

} // namespace

int _wcsicoll(const WCHAR* first, const WCHAR* second)
{
    const KeepErrno keep;
    const LowerText left(first);
    const LowerText right(second);
    if (left.Get() == nullptr || right.Get() == nullptr) {
        return _wcsicmp(first, second);
    }
    return std::wcscoll(left.Get(), right.Get());
}

} // namespace qv::platform
