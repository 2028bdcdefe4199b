// The values that stand in a store for the keys of one VRF and family, made from its
// mirror. Event-loop thread only.
#pragma once

#include <optional>
#include <string>

#include "apps/json/RouteJson.h"
#include "apps/store/Key.h"

namespace Fleet {

struct Value {
   std::string text;     // JSON
   uint64_t digest = 0;  // of what the value says; equal digests: nothing to write
};

// A copy of the moment's configuration, so that many values may be made at once.
class Values {
 public:
   // The mirror outlives it.
   explicit Values( const Show::Mirror& mirror );

   // Nothing if the tables have nothing of the key. REQUIRES: a key of the mirror's VRF
   // and family, other than rates and top.
   std::optional<Value> of( const Key& key ) const;

 private:
   std::optional<Value> route( const RouteKey& key ) const;
   std::optional<Value> registers( const RouteKey& key ) const;
   Value table() const;

   const Show::Mirror& mirror_;
   Show::RouteFilter all_;
   Show::RouteEntries entries_;
};

Value valueOf( const nlohmann::ordered_json& json );

// Of this boot of the host; empty where the kernel does not say.
const std::string& bootId();

}
