#pragma once

#include "core/store/Entity.h"

// Tovren's fifteen record types, always in this order, at schema version 1.0.0.
namespace StoreSchema {

const Schema &current();

} // namespace StoreSchema
