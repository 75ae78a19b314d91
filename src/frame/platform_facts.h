// Takes the facts that differ between systems.
#pragma once

namespace qv::core
{

// Fills the version facts, then the entry points that not every system has.
void TakePlatformFacts();

} // namespace qv::core
