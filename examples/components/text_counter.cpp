// A component in C++: counts the lines, words and characters of a text.
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <string>

#include "classes.h"
#include "text_analyser.h"
#include "utf8.h"

namespace
{

// The blanks of Unicode, those that break lines among them.
bool IsBlank(uint32_t point)
{
    return point == ' ' || (point >= '\t' && point <= '\r') || point == 0x85 || point == 0xA0 ||
           point == 0x1680 || (point >= 0x2000 && point <= 0x200A) || point == 0x2028 ||
           point == 0x2029 || point == 0x202F || point == 0x205F || point == 0x3000;
}

class TextCounter final : public ITextAnalyser
{
public:
    QVRESULT QueryInterface(const GUID* iid, void** objectOut) override
    {
        if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) && !QVComIsEqualGUID(iid, &IID_TextAnalyser)) {
            *objectOut = nullptr;
            return E_INVALIDARG;
        }
        AddRef();
        *objectOut = static_cast<ITextAnalyser*>(this);
        return S_OK;
    }

    uint32_t AddRef() override { return ++m_references; }

    uint32_t Release() override
    {
        const uint32_t left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    QVRESULT Feed(const char* bytes, uint32_t size) override
    {
        m_bytes += size;
        for (uint32_t i = 0; i < size; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            Utf8Step step = Utf8Read(&m_reader, byte);
            if (step == UTF8_AGAIN) {
                CountBroken();
                step = Utf8Read(&m_reader, byte);
            }
            if (step == UTF8_BROKEN) {
                CountBroken();
            } else if (step == UTF8_POINT) {
                Count(m_reader.point);
            }
        }
        return S_OK;
    }

    QVRESULT Report(char** textOut) override
    {
        *textOut = nullptr;
        try {
            const std::string text = Rows();
            void* block = nullptr;
            const QVRESULT result = QVComMalloc(static_cast<uint32_t>(text.size() + 1), &block);
            if (result < 0) {
                return result;
            }
            *textOut = static_cast<char*>(block);
            std::memcpy(block, text.c_str(), text.size() + 1);
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

private:
    void Count(uint32_t point)
    {
        ++m_points;
        m_zeros += point == 0 ? 1 : 0;
        m_beyondAscii += point > 0x7F ? 1 : 0;
        if (point == 0xFEFF && m_points == 1) {
            return; // a byte order mark, which nobody sees
        }
        const bool isBlank = IsBlank(point);
        m_words += !isBlank && !m_inWord ? 1 : 0;
        m_inWord = !isBlank;
        if (point == '\n') {
            ++m_lines;
            m_column = 0;
        } else if (point != '\r') {
            m_longest = std::max(m_longest, ++m_column);
        }
    }

    // A place where something stands, though nobody knows what: a part of its line and its word.
    void CountBroken()
    {
        ++m_broken;
        m_words += m_inWord ? 0 : 1;
        m_inWord = true;
        m_longest = std::max(m_longest, ++m_column);
    }

    std::string Rows() const
    {
        std::string rows;
        const auto row = [&rows](const char* label, const std::string& value) {
            rows.append(label).append("\t").append(value).append("\n");
        };
        // A last line without an end is a line too; a sequence that the end cuts off is broken.
        const uint64_t broken = m_broken + (m_reader.missing != 0 ? 1 : 0);
        row("lines", std::to_string(m_lines + (m_column != 0 ? 1 : 0)));
        row("longest line", std::to_string(m_longest) + " characters");
        row("words", std::to_string(m_words));
        row("characters",
            std::to_string(m_points) + " (" + std::to_string(m_beyondAscii) + " beyond ASCII)");
        row("bytes", std::to_string(m_bytes));
        row("looks like", m_bytes == 0         ? "nothing: the file is empty"
                          : m_zeros != 0       ? "binary data"
                          : broken != 0        ? "text that is not UTF-8"
                          : m_beyondAscii != 0 ? "text in UTF-8"
                                               : "plain ASCII text");
        if (broken != 0) {
            row("broken UTF-8", std::to_string(broken) + (broken == 1 ? " place" : " places"));
        }
        if (m_zeros != 0) {
            row("zero bytes", std::to_string(m_zeros));
        }
        return rows;
    }

    std::atomic<uint32_t> m_references{1};
    Utf8Reader m_reader{};
    uint64_t m_bytes = 0;
    uint64_t m_points = 0;
    uint64_t m_beyondAscii = 0;
    uint64_t m_broken = 0;
    uint64_t m_zeros = 0;
    uint64_t m_lines = 0;
    uint64_t m_words = 0;
    uint64_t m_column = 0;
    uint64_t m_longest = 0;
    bool m_inWord = false;
};

// The class object needs no life of its own: it lasts as long as the library.
class TextCounterFactory final : public IQVClassFactory
{
public:
    QVRESULT QueryInterface(const GUID* iid, void** objectOut) override
    {
        if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) &&
            !QVComIsEqualGUID(iid, &QV_IID_CLASS_FACTORY)) {
            *objectOut = nullptr;
            return E_INVALIDARG;
        }
        *objectOut = static_cast<IQVClassFactory*>(this);
        return S_OK;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }

    QVRESULT CreateInstance(IQVUnknown* outer, const GUID* iid, void** objectOut) override
    {
        *objectOut = nullptr;
        if (outer != nullptr) {
            return E_NOTIMPL; // no part of another object
        }
        TextCounter* const counter = new (std::nothrow) TextCounter;
        if (counter == nullptr) {
            return E_OUTOFMEMORY;
        }
        const QVRESULT result = counter->QueryInterface(iid, objectOut);
        counter->Release();
        return result;
    }
};

TextCounterFactory g_factory;

} // namespace

extern "C" QV_EXPORT QVRESULT DllGetClassObject(const GUID* clsid, const GUID* iid,
                                                void** objectOut)
{
    *objectOut = nullptr;
    if (!QVComIsEqualGUID(clsid, &CLSID_TextCounter)) {
        return REGDB_E_CLASSNOTREG;
    }
    return g_factory.QueryInterface(iid, objectOut);
}
