// The charset of a text, and the text in UTF-8.
#pragma once

#include <qvcore6/encoding.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace host
{

struct Charset
{
    std::u16string name; // as ICU knows it
    const char* reason;  // why this one, in words
    std::size_t mark;    // bytes at the start that say so and are no text
};

// The one that was told, or else the text's own: by its mark, or UTF-8 if the beginning of the text
// is, or else the user's. whole: the beginning is all of it.
Charset FindCharset(const std::u16string& told, const std::vector<char>& beginning, bool whole);

// Takes a text in pieces, cut anywhere. What is no text becomes a substitute; in what is UTF-8
// already it stays.
class Utf8Stream
{
public:
    explicit Utf8Stream(const std::u16string& charset);

    // The next piece in UTF-8, valid until the next call. Throws.
    const std::string& Convert(const char* bytes, std::size_t size);
    // What the end of the text adds.
    const std::string& End();

private:
    struct Close
    {
        void operator()(QVEncConverter* converter) const { QVEncToW_Close(converter); }
    };
    using Converter = std::unique_ptr<QVEncConverter, Close>;

    void Add(const QVWChar* wide, const QVWChar* end);

    Converter m_from; // null: nothing is to be done
    Converter m_to;
    std::string m_text;
};

} // namespace host
