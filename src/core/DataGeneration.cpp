#include "DataGeneration.h"

namespace {

int generation = 0;

} // namespace

namespace DataGeneration {

int current()
{
    return generation;
}

void advance()
{
    ++generation;
}

} // namespace DataGeneration
