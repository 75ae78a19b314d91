// Where exceptions end: the one wrapper around the body of an exported function that can throw.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

#include "frame/exception.h"

namespace qv::core
{

// For the last handler: E_FAIL. Does not return if the thread is being cancelled or is ending
// inside a callback, which must go on unwinding.
QVRESULT ResultOfUnknownException();

// Runs the body and turns what it throws into a code. A body without a result gives S_OK.
template <class Body> QVRESULT Boundary(Body&& body)
{
    try {
        if constexpr (std::is_void_v<decltype(body())>) {
            std::forward<Body>(body)();
            return S_OK;
        } else {
            return std::forward<Body>(body)();
        }
    } catch (const EQVCoreException& failure) {
        return failure.Result();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return ResultOfUnknownException();
    }
}

} // namespace qv::core
