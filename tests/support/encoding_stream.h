// A converter whose streams go in pieces of one size, through a target of one room.
#pragma once

#include <qvcore6/encoding.h>

#include <algorithm>
#include <string>

namespace qv::test
{

class EncodingStream
{
public:
    explicit EncodingStream(const char16_t* name) : m_converter(QVEncToW_Open(name)) {}
    ~EncodingStream() { QVEncFromW_Close(m_converter); }
    EncodingStream(const EncodingStream&) = delete;
    EncodingStream& operator=(const EncodingStream&) = delete;

    QVEncConverter* Get() const { return m_converter; }

    // Both append what the whole stream gives, up to a failure.
    QVRESULT ToW(const std::string& bytes, std::u16string* text, std::size_t piece = 1000,
                 std::size_t room = 1000)
    {
        return Run(QVEncToW_Convert, QVEncToW_Flush, bytes, text, piece, room);
    }
    QVRESULT FromW(const std::u16string& text, std::string* bytes, std::size_t piece = 1000,
                   std::size_t room = 1000)
    {
        return Run(QVEncFromW_Convert, QVEncFromW_Flush, text, bytes, piece, room);
    }

private:
    template <class Convert, class Flush, class From, class To>
    QVRESULT Run(Convert convert, Flush flush, const From& text, To* result, std::size_t piece,
                 std::size_t room)
    {
        const auto* source = text.data();
        To target(room, 0);
        const auto drain = [&](auto step) {
            QVRESULT code;
            do {
                auto* to = target.data();
                code = step(&to, target.data() + room);
                result->append(target.data(), to);
            } while (code == QV_E_BUFFER_TOO_SMALL);
            return code;
        };
        for (std::size_t end = 0; end < text.size();) {
            end = std::min(text.size(), end + piece);
            const QVRESULT code = drain([&](auto** to, const auto* limit) {
                return convert(m_converter, &source, text.data() + end, to, limit);
            });
            if (code < 0) {
                return code;
            }
        }
        return drain([&](auto** to, const auto* limit) { return flush(m_converter, to, limit); });
    }

    QVEncConverter* const m_converter;
};

} // namespace qv::test
