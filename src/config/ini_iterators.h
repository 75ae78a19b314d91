// Snapshots of what an ini file holds, to be walked without its lock.
#pragma once

#include <qvcore6/base.h>

#include <cstddef>
#include <string>
#include <vector>

class IniFile;

class IniFileIteratorBase
{
public:
    explicit IniFileIteratorBase(const QVWChar* name) : m_name(name) {}
    virtual ~IniFileIteratorBase() = default;
    IniFileIteratorBase(const IniFileIteratorBase&) = delete;
    IniFileIteratorBase& operator=(const IniFileIteratorBase&) = delete;

    // The one given at construction.
    virtual std::u16string GetName() const { return m_name; }
    // Throws QV_E_END_OF_DATA at the end, as an EQVCoreException.
    virtual std::u16string Next() = 0;
    virtual bool HasNext() const = 0;

private:
    std::u16string m_name;
};

namespace qv::core
{

class IniFileListIterator : public IniFileIteratorBase
{
public:
    std::u16string Next() final;
    bool HasNext() const final { return m_cursor != m_items.size(); }

protected:
    using IniFileIteratorBase::IniFileIteratorBase;

    std::vector<std::u16string> m_items;

private:
    std::size_t m_cursor = 0;
};

} // namespace qv::core

// The keys of a section, in their order; none of one that just has others below it. Throws
// EQVCoreException: QV_E_FILE_NOT_FOUND for one that has neither.
class IniFileKeyIterator final : public qv::core::IniFileListIterator
{
public:
    IniFileKeyIterator(IniFile& file, const QVWChar* section);
};

// The next components of the sections below a name, each once, case respected.
class IniFileSetIterator final : public qv::core::IniFileListIterator
{
public:
    IniFileSetIterator(IniFile& file, const QVWChar* name);
};
