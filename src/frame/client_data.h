// The one record of the process's tables, hanging off the process-wide record.
#pragma once

#include "component/factory_manager.h"
#include "component/library_manager.h"
#include "frame/ref_counted.h"
#include "process/process_manager.h"
#include "process/thread_manager.h"

// Built in this order and ended in reverse, so that cached class objects go first.
class CQVClientData : public CQVCoreRefCounted
{
public:
    CQVProcessManager m_processManager;
    CQVThreadManager m_threadManager;
    CQVLibraryManager m_libraryManager;
    CQVFactoryManager m_factoryManager;
};
