// Moving the configuration between its stores.
#pragma once

namespace qv::core
{

// In a forked child: a migration that another thread was at is none here.
void ForgetMigration();

} // namespace qv::core
