// Objects that processes share by name: there with the first holder, gone with the last, however
// that one ends.
//
// An object is a file in memory, which has its name when it is complete. Every holder keeps a read
// lock on its byte of life, which the kernel drops with the holder; who finds that byte free has
// found what a dead process left over. Unlinking and taking over are done by the one who has a
// write lock on it, and before that one on another byte, the gate. The locks belong to the open
// file, so a forked child holds what its parent held, without doing anything for it.
//
// Who finds a read lock of another on the byte of life may take one too, without the gate: even if
// the other has gone meanwhile, the object was alive when it was found, and nobody has taken it
// over. Unless it has lost its name, that is. A holder drops his lock before he looks whether
// others are left, so that of two who go at once the later one finds nobody.
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

struct NamedFacts
{
    FileIdentity identity;
    std::uint64_t dataSize;
};

// A hold on an object. What is held of the open file, and how it is given up, is the kind's.
class NamedObject
{
public:
    NamedObject(const NamedObject&) = delete;
    NamedObject& operator=(const NamedObject&) = delete;

    // 0: made; 183: was there. Others are failures, and nothing is held: 2 if there is none and
    // none may be made; 3 without the folder, or for a name in a folder; 4; 5 if refused; 6 for an
    // object of another kind or name, or what is no object; 14; 32 if others keep the gate for ten
    // seconds; 112; 206 for a name that is too long.
    DWORD Open(const NamedRequest& request);

protected:
    NamedObject() = default;
    ~NamedObject() = default;

    // Of opening, all with the lock held. First all that may fail, before others can find what is
    // being made: 0 or an error number. Then either of the two.
    virtual DWORD Prepare(const ObjectFile& file, const NamedFacts& facts) = 0;
    virtual void Discard() = 0;
    virtual void Keep(ObjectFile&& file) = 0;

    // When this hold is gone: removes the file if there is no other.
    void RemoveIfLast() const { RemoveIfLast(m_path); }
    static void RemoveIfLast(const ObjectPath& path);
    // The same with one's own open file, of which nobody needs the hold any more: quicker, and
    // without another descriptor. To be called with the lock held. False, and it is still to be
    // done, if forked children may share the file or the gate is busy.
    bool TryGiveUp(const ObjectFile& file, const FileIdentity& identity) const;

    const ObjectPath& Path() const { return m_path; }

private:
    DWORD TryOpen(const NamedRequest& request);
    DWORD Create(const NamedRequest& request);
    DWORD Join(ObjectFile&& file, const NamedRequest& request);
    DWORD TakeOver(ObjectFile&& file, const FileState& state, const NamedRequest& request);

    ObjectPath m_path;
    unsigned m_forks = 0;   // that this process had seen when the file was opened
    bool m_wasHeld = false; // for a moment, and then others may have left it to us to remove it
};

// One try, with the lock held. 0 when there is nothing at the path that nobody holds, as far as
// this user may see to that.
DWORD RemoveLeftOver(const ObjectPath& path);

// Removes what killed processes have left over, and with it the memory that it takes: some of what
// is older than a second, so that creators may call this each time; or all that there is. Never
// waits.
void SweepNamedObjects(bool all);

// The hold of one who needs but the head, mapped.
class NamedHeadHold final : public NamedObject
{
public:
    enum class Slot
    {
        None,
        Own,
    };

    explicit NamedHeadHold(Slot slot = Slot::None) : m_slotKind(slot) {}
    ~NamedHeadHold() { Close(); }
    NamedHeadHold(const NamedHeadHold&) = delete;
    NamedHeadHold& operator=(const NamedHeadHold&) = delete;

    void Close();
    // Null when nothing is held, as after the unload of the module. A hold with a number of its own
    // is not handed on to a forked child, which would keep the number of a parent that was killed.
    NamedHead* Head() const { return m_head; }
    // This hold's number, if it has asked for one.
    std::uint32_t SlotNumber() const { return m_slot; }
    // Whether a hold with that number lives: also where that cannot be found out.
    bool IsSlotTaken(std::uint32_t slot) const;

private:
    friend void CloseNamedObjects();
    friend void ForgetOwnSlots();

    void Unlist();

    DWORD Prepare(const ObjectFile& file, const NamedFacts& facts) override;
    void Discard() override;
    void Keep(ObjectFile&& file) override;

    NamedHead* m_head = nullptr;
    Slot m_slotKind;
    std::uint32_t m_slot = 0;
    NamedHeadHold* m_next = nullptr;
    NamedHeadHold* m_previous = nullptr;
};

// At the end of the process or of the module: none is opened any more.
void EndNamedObjects();
// What heads are still held are given up: for the end of the module.
void CloseNamedObjects();

// The lock under which objects are opened and given up. Also held around a fork: no object is half
// opened or half closed in the child.
void HoldNamedObjects();
void ReleaseNamedObjects();
// Before a fork, with the lock held: from now on open files may be shared with a child.
void CountFork();
// In a forked child, with the lock held: the holds that are its parent's alone.
void ForgetOwnSlots();

class NamedObjectsHold
{
public:
    NamedObjectsHold() { HoldNamedObjects(); }
    ~NamedObjectsHold() { ReleaseNamedObjects(); }
    NamedObjectsHold(const NamedObjectsHold&) = delete;
    NamedObjectsHold& operator=(const NamedObjectsHold&) = delete;
};

} // namespace qv::platform
