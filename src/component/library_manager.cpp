#include "component/library_manager.h"

#include <string>

#include "frame/exception.h"
#include "platform/error.h"
#include "platform/loader.h"
#include "text/ansi_string.h"

using qv::core::ThrowLastError;

namespace
{

qv::platform::HMODULE ModuleOf(QVLibrary library)
{
    return reinterpret_cast<qv::platform::HMODULE>(library);
}

} // namespace

QVLibrary CQVLibraryManager::Open(const QVWChar* path)
{
    const qv::platform::HMODULE module = qv::platform::LoadLibraryW(path);
    if (module == nullptr) {
        ThrowLastError();
    }
    return reinterpret_cast<QVLibrary>(module);
}

void CQVLibraryManager::Close(QVLibrary library)
{
    if (qv::platform::FreeLibrary(ModuleOf(library)) == 0) {
        ThrowLastError();
    }
}

void* CQVLibraryManager::GetSymbol(QVLibrary library, const QVWChar* name)
{
    qv::platform::SetLastError(qv::platform::ERROR_SUCCESS);
    const std::string narrow = QVWStringToAnsi(name);
    // Other names that cannot be converted come out empty, and no library has such a symbol.
    if (qv::platform::GetLastError() == qv::platform::ERROR_OUTOFMEMORY) {
        ThrowLastError();
    }
    const qv::platform::FARPROC symbol =
        qv::platform::GetProcAddress(ModuleOf(library), narrow.c_str());
    if (symbol == nullptr) {
        ThrowLastError();
    }
    return reinterpret_cast<void*>(symbol);
}
