#include <qvcore6/result.h>
#include <qvcore6/sharedmem.h>

#include <algorithm>

#include "platform/error.h"
#include "platform/mapping.h"
#include "platform/named_object_name.h"

using namespace qv::platform;

namespace
{

constexpr uint32_t kAccessMask = QV_FILE_READ | QV_FILE_WRITE;
constexpr uint32_t kCreationMask = QV_FILE_CREATE | QV_FILE_EXCLUSIVE;

// Nothing here throws or allocates: there is no boundary.

class SectionName
{
public:
    DWORD Make(const char* name)
    {
        ObjectName wide;
        if (const DWORD error = wide.Widen(name)) {
            return error;
        }
        const std::u16string_view units = wide.Units();
        *std::copy(units.begin(), units.end(), std::copy_n(u"SHM:", kPrefix, m_units)) = 0;
        return ERROR_SUCCESS;
    }
    const WCHAR* Units() const { return m_units; }

private:
    static constexpr std::size_t kPrefix = 4;
    WCHAR m_units[512];
    static_assert(kPrefix + kMaxObjectName < sizeof m_units / sizeof(WCHAR));
};

Descriptor Create(uint32_t size, const WCHAR* name)
{
    // A list that is present and null: everybody.
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, kTrue, nullptr, kFalse);
    const SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, kTrue};
    return CreateFileMappingW(kNoFile, &attributes, PAGE_READWRITE, 0, size, name);
}

Descriptor OpenExisting(uint32_t flags, const WCHAR* name)
{
    // The call leaves it alone: what an earlier one left there is no answer to this.
    SetLastError(ERROR_SUCCESS);
    return OpenFileMappingW((flags & QV_FILE_WRITE) != 0 ? FILE_MAP_WRITE : FILE_MAP_READ, kTrue,
                            name);
}

QVRESULT LastResult()
{
    return QVResultFromNative(GetLastError());
}

} // namespace

QVRESULT QVSharedMemOpen(const char* name, uint32_t flags, uint32_t /*mode*/, uint32_t size,
                         QVHandle* handleOut)
{
    *handleOut = QV_HANDLE_NONE;
    if (name == nullptr) {
        // Not the empty name, under which others meet.
        return E_INVALIDARG;
    }
    SectionName section;
    if (const DWORD error = section.Make(name)) {
        return QVResultFromNative(error);
    }
    const bool mayCreate = (flags & kCreationMask) != 0;
    const Descriptor handle =
        mayCreate ? Create(size, section.Units()) : OpenExisting(flags, section.Units());
    const DWORD error = GetLastError();
    if (handle == kNoFile) {
        return QVResultFromNative(error);
    }
    const bool existed = error == ERROR_ALREADY_EXISTS;
    if (existed && (flags & kCreationMask) == kCreationMask) {
        CloseHandle(handle);
        return E_FAIL;
    }
    *handleOut = handle;
    return existed ? S_OK : QV_S_CREATED;
}

QVRESULT QVSharedMemAttach(QVHandle handle, uint32_t flags, void** viewOut)
{
    DWORD access = 0;
    if (flags == QV_FILE_WRITE || flags == kAccessMask) {
        access = FILE_MAP_WRITE;
    } else if (flags == QV_FILE_READ) {
        access = FILE_MAP_READ;
    }
    void* const view = MapViewOfFile(handle, access, 0, 0, 0);
    if (view == nullptr) {
        return LastResult();
    }
    *viewOut = view;
    return S_OK;
}

QVRESULT QVSharedMemDetach(const void* view)
{
    return UnmapViewOfFile(view) != kFalse ? S_OK : LastResult();
}

QVRESULT QVSharedMemClose(QVHandle handle)
{
    return CloseHandle(handle) != kFalse ? S_OK : LastResult();
}
