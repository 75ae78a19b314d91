#include "config/ini_iterators.h"

#include <algorithm>
#include <string_view>

#include "config/ini_file.h"
#include "frame/exception.h"

using namespace qv::core;

std::u16string qv::core::IniFileListIterator::Next()
{
    if (!HasNext()) {
        throw EQVCoreException(QV_E_END_OF_DATA);
    }
    return m_items[m_cursor++];
}

IniFileKeyIterator::IniFileKeyIterator(IniFile& file, const QVWChar* section)
    : IniFileListIterator(section)
{
    IniLockHold hold(file.Lock());
    file.Refresh();
    if (const IniSection* const found = file.Table().FindSection(section)) {
        for (const IniKey& key : found->keys) {
            m_items.emplace_back(key.name);
        }
    } else if (file.GetSectionsUnder(section).empty()) {
        throw EQVCoreException(QV_E_FILE_NOT_FOUND);
    }
    hold.Release();
}

IniFileSetIterator::IniFileSetIterator(IniFile& file, const QVWChar* name)
    : IniFileListIterator(name)
{
    IniLockHold hold(file.Lock());
    file.Refresh();
    const std::size_t prefix = std::u16string_view(name).size() + 1;
    file.Table().ForEachUnder(name, [&](const IniSection& section) {
        if (section.name.size() < prefix) {
            return; // the one of that name
        }
        const std::u16string_view rest = section.name.substr(prefix);
        const std::u16string_view component = rest.substr(0, rest.find(u'\\'));
        if (m_items.empty() || m_items.back() != component) {
            m_items.emplace_back(component);
        }
    });
    hold.Release();
    std::sort(m_items.begin(), m_items.end());
    m_items.erase(std::unique(m_items.begin(), m_items.end()), m_items.end());
}
