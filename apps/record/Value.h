// A value as it stands in a store.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Fleet {

struct Value {
   std::string text;     // JSON
   uint64_t digest = 0;  // of what the value says; equal digests: nothing to write
};

Value valueOf( const nlohmann::ordered_json& json );

// Of this boot of the host; empty where the kernel does not say.
const std::string& bootId();

}
