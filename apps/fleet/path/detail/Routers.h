// The routers of a fleet as a question reads them: of all of them what their links are
// made of, of those it meets what they hold of one stream.
#pragma once

#include <deque>
#include <set>

#include "apps/fleet/path/Fabric.h"
#include "apps/fleet/path/Path.h"
#include "apps/store/Store.h"

namespace Fleet {

// What a router holds of a stream, which is a source's packets to a group.
struct Stream {
   std::optional<Route> sg = {};
   std::optional<Route> wc = {};
   std::optional<Registering> registering = {};
   std::optional<Rate> rate = {};
   Time at = 0;  // of the rate
};

class Routers {
 public:
   // Without a stream, links only. A stream's source is unspecified for a (*,G) route.
   // `all`: the stream's facts of all routers will be asked for.
   Routers( Reader& reader, Scope scope, std::optional<RouteKey> stream, bool all );

   const Fabric& fabric() const { return *fabric_; }
   const Stream& stream( uint32_t router );

   // Reads all of these routers once more.
   void again( const std::set<uint32_t>& routers );

   // Reports are kept until the value is read again.
   std::vector<Problem> problems() const;

 private:
   using Values = std::map<std::string, std::string>;
   std::vector<std::string> linkKeys() const;
   std::vector<std::string> streamKeys() const;
   std::string key( Key::Kind kind, const RouteKey& of = {} ) const;
   Values read( uint32_t router, const std::vector<std::string>& keys );
   RouterFacts links( uint32_t router, const Values& values );
   Stream streams( uint32_t router, const Values& values );
   RouteKey wildcard() const;
   template <class Parse>
   auto parse( uint32_t router, const Values& values, const std::string& key,
               const Parse& parse ) -> std::optional<decltype( parse( "" ) )>;

   Reader& reader_;
   const Scope scope_;
   const std::optional<RouteKey> stream_;
   std::vector<std::string> names_;
   std::vector<std::map<std::string, Problem>> problems_;  // by key
   std::deque<std::optional<Stream>> streams_;
   std::optional<Fabric> fabric_;
};

}
