// The process-wide record. Every subsystem reaches its own manager through it and sees no other's.
#pragma once

#include <qvcore6/mutex.h>

class CQVClientData;
class CQVLockStatManager;
class CQVModuleManager;
class IMutexProvider;

// Made by the library's start and ended by its stop; read without a lock in between.
struct CQVGlobalData
{
    QVMutex* m_debugMutex;
    CQVLockStatManager* m_lockStatManager;
    CQVClientData* m_clientData;
    CQVModuleManager* m_moduleManager;
    IMutexProvider* m_mutexProvider;
};

// All null before the start and after the stop.
extern CQVGlobalData g_globalData;
