// GUID text of any shape: no read behind the terminator, and a text that parses comes back the
// same.
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

QVWChar Upper(QVWChar unit)
{
    return unit >= u'a' && unit <= u'f' ? static_cast<QVWChar>(unit - u'a' + u'A') : unit;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An allocation of just that size, so that a read behind it is seen.
    std::vector<QVWChar> text(size / sizeof(QVWChar) + 1);
    if (size >= sizeof(QVWChar)) {
        std::memcpy(text.data(), data, size / sizeof(QVWChar) * sizeof(QVWChar));
    }
    text.back() = 0;

    GUID unwritten;
    std::memset(&unwritten, 0xA5, sizeof unwritten);
    GUID guid = unwritten;
    const QVRESULT result = QVComGUIDFromString(text.data(), &guid);
    if (result != S_OK) {
        Require(result == E_INVALIDARG && QVComIsEqualGUID(&guid, &unwritten) == 1);
        return 0;
    }
    QVWChar written[QV_GUID_TEXT_UNITS];
    Require(QVComStringFromGUID(&guid, written, QV_GUID_TEXT_UNITS) == S_OK);
    const size_t skip = text[0] == u'{' ? 0 : 1;
    for (size_t i = skip; i < 37; ++i) {
        Require(written[i] == Upper(text[i - skip]));
    }
    return 0;
}
