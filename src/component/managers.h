// The way from an export to its manager. A start that failed leaves none: then each of these throws
// E_FAIL, so that an export refuses instead of crashing.
#pragma once

class CQVFactoryManager;
class CQVLibraryManager;
class CQVModuleManager;

namespace qv::core
{

CQVFactoryManager& FactoryManager();
CQVLibraryManager& LibraryManager();
CQVModuleManager& ModuleManager();

} // namespace qv::core
