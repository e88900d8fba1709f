#pragma once

// Counts erases of the journal's data. A page that was loaded keeps the generation it saw and
// drops a save from an older one, so that a late save can't bring back a page just erased.
namespace DataGeneration {

int current();
void advance();

} // namespace DataGeneration
