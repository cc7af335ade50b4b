#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>

class ObjectStore;

// A dictionary that goes with the store, of keys and values that lie in it. No key comes twice.
// Null when memory runs out.
CFDictionaryRef CreateStoredDictionary(ObjectStore& store, void const** keys, void const** values,
                                       std::size_t count);
