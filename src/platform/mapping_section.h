// What a section's handle and its views share in this process.
#pragma once

#include <cstdint>

#include "platform/descriptor_record.h"
#include "platform/named_object.h"

namespace qv::platform
{

class SectionRecord final : public DescriptorRecord, public NamedObject
{
public:
    static constexpr DescriptorKind kKind = DescriptorKind::Section;

    explicit SectionRecord(bool mayWrite) : DescriptorRecord(kKind), m_mayWrite(mayWrite) {}

    Descriptor Handle() const { return m_handle; }
    bool MayWrite() const { return m_mayWrite; }
    std::uint64_t Size() const { return m_size; }
    // Whether the descriptor is its handle still, and not that of another file which was opened
    // after the host had closed it by itself.
    bool IsHandle(Descriptor descriptor) const { return HasFile(descriptor, 0); }
    // The same, and the file has not been cut.
    bool IsWhole(Descriptor descriptor) const
    {
        return HasFile(descriptor, kNamedHeadSize + m_size);
    }

    DWORD Close(Descriptor descriptor) override;
    bool IsTakenByClose() const override { return true; }

    // Under the lock of the views. True for the last of what kept the section.
    void AddView() { ++m_views; }
    bool DropView() { return --m_views == 0 && !m_isOpen; }
    // Neither handle nor view is left. May be called again.
    void GiveUp();

private:
    friend class SectionViews;
    friend void CloseSectionCopies(const Descriptor* kept);
    friend void EndSections();

    ~SectionRecord() override;

    DWORD Prepare(const ObjectFile& file, const NamedFacts& facts) override;
    void Discard() override;
    void Keep(ObjectFile&& file) override;

    bool HasFile(Descriptor descriptor, std::uint64_t leastSize) const;
    void LeaveList();
    // Through the handle: as TryGiveUp.
    bool TryGiveUpHandle() const;
    // Its handle and views go on without keeping it alive.
    void LetGo();

    bool m_mayWrite;
    bool m_isListed = false; // holds the object
    Descriptor m_handle = -1;
    std::uint64_t m_size = 0;
    FileIdentity m_identity;
    SectionRecord* m_next = nullptr;
    SectionRecord* m_previous = nullptr;
    // Under the lock of the views.
    bool m_isOpen = true;
    std::size_t m_views = 0;
};

} // namespace qv::platform
