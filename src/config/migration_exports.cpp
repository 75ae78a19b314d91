#include <qvcore6/registry.h>

#include <atomic>

#include "config/ini_store.h"
#include "config/migration.h"
#include "config/reg_key.h"
#include "frame/boundary.h"
#include "frame/facts.h"

namespace qv::core
{

namespace
{

// Two at once would take the ini file's object from under each other.
constinit std::atomic<bool> g_isRunning = false;

void CopyRoot(std::uint32_t root, std::uint32_t fromKind, std::uint32_t toKind)
{
    const RefPtr<CRegKey> source = CRegKey::Create(root, u"", fromKind);
    const RefPtr<CRegKey> target = CRegKey::Create(root, u"", toKind);
    CRegKey::CopyTree(*source.Get(), *target.Get());
}

void Migrate(std::uint32_t fromKind, std::uint32_t toKind)
{
    const bool hasViews = s_isWow64 != 0;
    if (hasViews) {
        CopyRoot(QV_HKEY_CLASSES_64, fromKind, toKind);
    }
    CopyRoot(QV_HKEY_CLASSES, fromKind, toKind);
    if (hasViews) {
        CopyRoot(QV_HKEY_CONFIG_64, fromKind, toKind);
    }
    CopyRoot(QV_HKEY_CONFIG, fromKind, toKind);
    CopyRoot(QV_HKEY_USER, fromKind, toKind);
    if (fromKind == QV_STORE_INI) {
        registry::DeleteIniFile();
    }
}

// The ini store for the length of a migration.
class StoreHold
{
public:
    StoreHold() { registry::Init(); }
    ~StoreHold()
    {
        registry::Term();
        g_isRunning = false;
    }
    StoreHold(const StoreHold&) = delete;
    StoreHold& operator=(const StoreHold&) = delete;
};

} // namespace

void ForgetMigration()
{
    if (g_isRunning) {
        registry::Forget();
        g_isRunning = false;
    }
}

} // namespace qv::core

QVRESULT QVRegistryMigrate(std::uint32_t fromKind, std::uint32_t /*reserved1*/,
                           std::uint32_t toKind, std::uint32_t /*reserved2*/)
{
    using namespace qv::core;
    if (g_isRunning.exchange(true)) {
        return E_ACCESSDENIED;
    }
    return Boundary([&] {
        const StoreHold hold;
        Migrate(fromKind, toKind);
    });
}
