// The subsystems' way to their own part of the record, whose layout they do not know.
#include "frame/client_data.h"

#include "component/managers.h"
#include "frame/exception.h"
#include "frame/global_data.h"
#include "process/managers.h"

namespace qv::core
{

namespace
{

template <class T> T& Made(T* object)
{
    if (object == nullptr) {
        throw EQVCoreException(E_FAIL);
    }
    return *object;
}

} // namespace

CQVFactoryManager& FactoryManager()
{
    return Made(g_globalData.m_clientData).m_factoryManager;
}

CQVLibraryManager& LibraryManager()
{
    return Made(g_globalData.m_clientData).m_libraryManager;
}

CQVModuleManager& ModuleManager()
{
    return Made(g_globalData.m_moduleManager);
}

CQVProcessManager& ProcessManager()
{
    return Made(g_globalData.m_clientData).m_processManager;
}

CQVThreadManager& ThreadManager()
{
    return Made(g_globalData.m_clientData).m_threadManager;
}

} // namespace qv::core
