// The values that stand in a store for the keys of one VRF and family, made from its
// mirror. Event-loop thread only.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "apps/json/RouteJson.h"
#include "apps/record/Watched.h"

namespace Fleet {

// A copy of the moment's configuration, so that many values may be made at once.
class Values {
 public:
   // Of some keys the values are too large to be put, as `table` says. Both outlive it.
   Values( Watched& watched, const std::set<Key>& tooLarge );

   // Nothing if the tables have nothing of the key. Throws Unreadable. REQUIRES: a key of
   // the VRF and family.
   std::optional<Value> of( const Key& key ) const;

   // A record is being written, and will be notified again; or it is damaged.
   class Unreadable {};

 private:
   std::optional<Value> route( const RouteKey& key ) const;
   std::optional<Value> registers( const RouteKey& key ) const;
   Value rps() const;
   Value table() const;

   Watched& watched_;
   const std::set<Key>& tooLarge_;
   const Show::Mirror& mirror_;
   Show::RouteFilter all_;
   Show::RouteEntries entries_;
};

}
