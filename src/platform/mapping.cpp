#include "platform/mapping.h"

#include <cstdint>
#include <new>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/mapping_section.h"
#include "platform/mapping_views.h"

namespace qv::platform
{

namespace
{

constexpr DWORD kSectionAllAccess = 0xF001F;

// -1 unless the result is 0 or 183.
Descriptor Open(const NamedRequest& request, bool mayWrite, DWORD* result)
{
    const RecordHold<SectionRecord> section(new (std::nothrow) SectionRecord(mayWrite));
    if (!section) {
        *result = ERROR_OUTOFMEMORY;
        return kNoFile;
    }
    if (request.mayCreate) {
        SweepNamedObjects(false);
    }
    *result = section->Open(request);
    if (*result == ERROR_DISK_FULL) {
        SweepNamedObjects(true);
        *result = section->Open(request);
    }
    if (*result == ERROR_DISK_FULL) {
        *result = ERROR_COMMITMENT_LIMIT;
    }
    return section->Handle();
}

} // namespace

Descriptor CreateFileMappingW(Descriptor file, const SECURITY_ATTRIBUTES* attributes,
                              DWORD protection, DWORD sizeHigh, DWORD sizeLow, const WCHAR* name)
{
    const std::uint64_t size = std::uint64_t{sizeHigh} << 32 | sizeLow;
    if (file != kNoFile || protection != PAGE_READWRITE || size == 0 || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return kNoFile;
    }
    DWORD result;
    const Descriptor handle = Open(
        {
            .name = name,
            .kind = NamedKind::Section,
            .mayCreate = true,
            .audience = AudienceOf(DescriptorOf(attributes), kSectionAllAccess),
            .content = {.dataSize = size},
        },
        true, &result);
    SetLastError(result);
    return handle;
}

Descriptor OpenFileMappingW(DWORD access, BOOL /*inherit*/, const WCHAR* name)
{
    const bool isAccess = access == FILE_MAP_WRITE || access == FILE_MAP_READ;
    if (!isAccess || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return kNoFile;
    }
    DWORD result;
    const Descriptor handle = Open({.name = name,
                                    .kind = NamedKind::Section,
                                    .mayCreate = false,
                                    .audience = Audience::Nobody,
                                    .content = {}},
                                   access == FILE_MAP_WRITE, &result);
    if (handle == kNoFile) {
        SetLastError(result);
    }
    return handle;
}

void* MapViewOfFile(Descriptor section, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                    std::size_t count)
{
    const bool isAccess = access == FILE_MAP_WRITE || access == FILE_MAP_READ;
    RecordHold<SectionRecord> record = FindRecordOf<SectionRecord>(section);
    DWORD error = ERROR_SUCCESS;
    void* view = nullptr;
    if (!isAccess || offsetHigh != 0 || offsetLow != 0 || count != 0) {
        error = ERROR_INVALID_PARAMETER;
    } else if (!record) {
        error = ERROR_INVALID_HANDLE;
    } else if (access == FILE_MAP_WRITE && !record->MayWrite()) {
        error = ERROR_ACCESS_DENIED;
    } else {
        view = SectionViews::Map(section, std::move(record), access == FILE_MAP_WRITE, &error);
    }
    if (view == nullptr) {
        SetLastError(error);
    }
    return view;
}

BOOL UnmapViewOfFile(const void* view)
{
    if (SectionViews::Unmap(view)) {
        return kTrue;
    }
    SetLastError(ERROR_INVALID_ADDRESS);
    return kFalse;
}

} // namespace qv::platform
