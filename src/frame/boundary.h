// Where exceptions end: the one wrapper around the body of an exported function that can throw.
#pragma once

#include <cxxabi.h>
#include <new>
#include <type_traits>
#include <utility>

#include "frame/exception.h"

namespace qv::core
{

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
    } catch (const abi::__forced_unwind&) {
        throw; // a thread that is cancelled or ends inside a callback must go on unwinding
    } catch (...) {
        return E_FAIL;
    }
}

} // namespace qv::core
