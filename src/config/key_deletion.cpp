#include "config/key_deletion.h"

#include <string>
#include <vector>

#include "frame/facts.h"
#include "platform/registry_store.h"

namespace qv::core
{

namespace
{

constexpr std::uint32_t kNameSize = 256; // the longest name of a key, 255 units, and its terminator

// One key whose sub-keys are being deleted. They are listed before the first one goes, so that the
// enumeration by index stays true.
struct Level
{
    NativeKey key;
    std::uint32_t index = 0;
    std::vector<std::u16string> names{};
};

// The next sub-key of the level; its name joins the list whether it can be opened or not. False at
// the end.
bool ListNext(Level& level, platform::DWORD view, NativeKey* subKey)
{
    char16_t name[kNameSize];
    platform::DWORD size = kNameSize;
    if (platform::RegEnumKeyExW(level.key.Get(), level.index, name, &size, nullptr, nullptr,
                                nullptr, nullptr) != 0) {
        return false;
    }
    ++level.index;
    level.names.emplace_back(name, size);
    subKey->Open(level.key.Get(), name, view | platform::KEY_ALL_ACCESS);
    return true;
}

std::int32_t DeleteListed(const Level& level, platform::DWORD view)
{
    std::int32_t status = 0;
    for (const std::u16string& name : level.names) {
        status |= s_regDeleteKeyEx(level.key.Get(), name.c_str(), view, 0);
    }
    return status;
}

// Depth first, with the levels on the heap: a tree may be deeper than the stack. The status is that
// of the top level alone; what fails below it shows there, as a key that still has sub-keys.
std::int32_t DeleteSubkeys(NativeKey top, platform::DWORD view)
{
    std::vector<Level> levels;
    levels.push_back({std::move(top)});
    for (;;) {
        NativeKey subKey;
        if (ListNext(levels.back(), view, &subKey)) {
            if (subKey.Get() != nullptr) {
                levels.push_back({std::move(subKey)});
            }
            continue;
        }
        const std::int32_t status = DeleteListed(levels.back(), view);
        levels.pop_back();
        if (levels.empty()) {
            return status;
        }
    }
}

} // namespace

QVRESULT DeleteTree(const NativeRoot& root, const char16_t* path)
{
    // The native calls take no path for the key itself: a mistake would empty the whole root.
    if (path == nullptr) {
        return E_FAIL;
    }
    if (s_isNT == 0) {
        return platform::RegDeleteKeyW(root.key, path) != 0 ? E_FAIL : S_OK;
    }
    NativeKey key;
    if (key.Open(root.key, path, root.view | platform::KEY_ALL_ACCESS) != 0) {
        return E_FAIL;
    }
    const std::int32_t status = DeleteSubkeys(std::move(key), root.view);
    return s_regDeleteKeyEx(root.key, path, root.view, 0) | status;
}

} // namespace qv::core
