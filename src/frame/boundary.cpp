#include "frame/boundary.h"

#include <cxxabi.h>

namespace qv::core
{

// A forced unwind is caught by a reference to no object, which the sanitizer would stop at.
__attribute__((no_sanitize("null"))) QVRESULT ResultOfUnknownException()
{
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return E_FAIL;
    }
}

} // namespace qv::core
