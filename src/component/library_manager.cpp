#include "component/library_manager.h"

#include <string>

#include "frame/exception.h"
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
    const std::string narrow = QVWStringToAnsi(name);
    if (*name != 0 && (narrow.empty() || narrow.front() == '\0')) {
        ThrowLastError(); // the conversion failed, and said why
    }
    const qv::platform::FARPROC symbol =
        qv::platform::GetProcAddress(ModuleOf(library), narrow.c_str());
    if (symbol == nullptr) {
        ThrowLastError();
    }
    return reinterpret_cast<void*>(symbol);
}
