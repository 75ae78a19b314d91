// Objects that processes share by name: there with the first holder, gone with the last, however
// that one ends.
//
// An object is a file in memory. Every holder keeps a lock on its byte of life, which the kernel
// drops with the holder; who finds that byte free has found what a dead process left over. Looking
// at it and unlinking are done while holding the lock on another byte, the gate. The locks belong
// to the open file, so a forked child holds what its parent held, without doing anything for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/named_object_file.h"
#include "platform/named_object_name.h"
#include "platform/security.h"
#include "platform/types.h"

namespace qv::platform
{

struct NamedRequest
{
    std::u16string_view name;
    NamedKind kind;
    bool mayCreate;
    Audience audience; // this and the rest: used in creation
    NamedContent content;
};

// One handle's hold on an object.
class NamedObject
{
public:
    NamedObject() = default;
    ~NamedObject() { Close(); }
    NamedObject(const NamedObject&) = delete;
    NamedObject& operator=(const NamedObject&) = delete;

    // 0: made; 183: was there. Others are failures, and nothing is held: 2 if there is none and
    // none may be made; 3 without the folder, or for a name in a folder; 4; 5 if refused; 6 for an
    // object of another kind or name, or what is no object; 14; 32 if others keep the gate for ten
    // seconds; 112; 206 for a name that is too long.
    DWORD Open(const NamedRequest& request);
    void Close();

    // Null when nothing is held, as after the unload of the module.
    NamedHead* Head() const { return m_head; }

private:
    friend void CloseNamedObjects();

    DWORD TryOpen(const NamedRequest& request);
    DWORD Create(const NamedRequest& request);
    DWORD Join(ObjectFile&& file, const NamedRequest& request);
    DWORD TakeOver(ObjectFile&& file, const NamedRequest& request);
    void Hold(ObjectFile&& file, NamedHead* head);
    void GiveUp();

    NamedHead* m_head = nullptr;
    ObjectPath m_path;
    NamedObject* m_next = nullptr;
    NamedObject* m_previous = nullptr;
};

// What still lives gives up its holds: for the end of the module.
void CloseNamedObjects();

// Around a fork: no object is half opened or half closed in the child.
void HoldNamedObjects();
void ReleaseNamedObjects();

} // namespace qv::platform
