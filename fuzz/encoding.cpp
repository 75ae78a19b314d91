// Bytes of any charset: a stream in pieces gives what the whole gives, both ways, and the UTF
// family gives back what it was given.
#include <qvcore6/encoding.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>

#include "support/encoding_stream.h"

namespace
{

constexpr const char16_t* kNames[] = {u"UTF-8",       u"UTF-16LE",  u"UTF-16BE",    u"windows-1252",
                                      u"ISO-8859-15", u"shift_jis", u"GB18030",     u"ISO-2022-JP",
                                      u"UTF-7",       u"UTF-16",    u"ISO-2022-KR", u"HZ"};

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// One that stops, or has a substitute: setting one changes what ICU makes of single bytes.
struct Stream : qv::test::EncodingStream
{
    Stream(const char16_t* name, bool stops) : EncodingStream(name)
    {
        Require(QVEncToW_SetSubstitutionChar(Get(), stops ? -1 : '?') == S_OK);
    }
};

void Family(const std::string& bytes)
{
    const auto size = static_cast<int32_t>(bytes.size());
    std::u16string wide(bytes.size() + 1, 0);
    std::string back(3 * bytes.size() + 1, 0);
    std::u32string points(bytes.size() + 1, 0);
    int32_t length = 0;
    int32_t backLength = 0;
    int32_t pointLength = 0;
    const QVRESULT strict =
        QVEncUTF8ToUTF16(wide.data(), size + 1, &length, bytes.data(), size, -1);
    Require(strict == S_OK || strict == QV_E_INVALID_CHAR);
    Require(QVEncUTF8ToUTF16(wide.data(), size + 1, &length, bytes.data(), size, 0xFFFD) == S_OK);
    Require(QVEncUTF16ToUTF8(back.data(), 3 * size + 1, &backLength, wide.data(), length, -1) ==
            S_OK);
    back.resize(static_cast<std::size_t>(backLength));
    Require((strict == S_OK) == (back == bytes) || bytes.find("\xEF\xBF\xBD") != bytes.npos);
    auto* const units = reinterpret_cast<uint32_t*>(points.data());
    Require(QVEncUTF8ToUTF32(units, size + 1, &pointLength, bytes.data(), size, 0xFFFD) == S_OK);
    std::string again(back.size() + 1, 0);
    Require(QVEncUTF32ToUTF8(again.data(), backLength + 1, &backLength, units, pointLength, -1) ==
            S_OK);
    again.resize(static_cast<std::size_t>(backLength));
    Require(again == back);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3 || size > 4096) {
        return 0;
    }
    const char16_t* const name = kNames[data[0] % std::size(kNames)];
    const bool stops = data[0] >= 128;
    const std::size_t piece = 1 + data[1] % 64;
    const std::size_t room = 1 + data[2] % 64;
    const std::string bytes(reinterpret_cast<const char*>(data) + 3, size - 3);

    std::u16string whole;
    std::u16string inPieces;
    const QVRESULT result = Stream(name, stops).ToW(bytes, &whole, bytes.size() + 1, 10'000);
    Require(Stream(name, stops).ToW(bytes, &inPieces, piece, room) == result);
    Require(whole == inPieces);
    Require(result == S_OK || stops); // an escape sequence that is unknown is E_FAIL

    std::string narrow;
    std::string narrowInPieces;
    const QVRESULT back = Stream(name, stops).FromW(whole, &narrow, whole.size() + 1, 50'000);
    Require(Stream(name, stops).FromW(whole, &narrowInPieces, piece, room) == back);
    Require(narrow == narrowInPieces);

    // The same at once, by way of UTF-16 in the machine's order.
    std::string target(2 * whole.size() + 2, 0);
    auto read = static_cast<uint32_t>(bytes.size());
    auto written = static_cast<uint32_t>(target.size());
    const QVRESULT atOnce = QVEncConvert(bytes.data(), &read, name, target.data(), &written,
                                         u"UTF-16LE", stops ? -1 : '?');
    Require(atOnce == result);
    Require(written == 2 * whole.size());
    Require(std::equal(target.begin(), target.begin() + written,
                       reinterpret_cast<const char*>(whole.data())));
    Family(bytes);
    return 0;
}
