// Where and as whom the program runs.
#pragma once

namespace host
{

// The head of the report.
void PrintSurroundings();

} // namespace host
