// Routes in the topology-tree-info of ietf-pim-base (RFC 9128), with `pimsm-state:`
// members for the rest. Values missing in the tables are left out.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/json/RouteMembers.h"
#include "apps/mirror/Rates.h"
#include "apps/mirror/RouteFilter.h"
#include "published/GroupRanges.h"

namespace Show {

// The matching routes' entries, in order. A (*,G) route's entry is of the RP tree,
// an (S,G) route's is not; its (S,G,rpt) state has an entry of its own. `now`:
// seconds, CLOCK_MONOTONIC. `rates`: with the counters of the traffic.
std::vector<nlohmann::ordered_json> routeEntries( const Mirror& mirror,
                                                  const RouteFilter& filter,
                                                  double now,
                                                  const Rates* rates = nullptr );

// Makes the entries of single routes of a mirror; a copy of the moment's group ranges.
class RouteEntries {
 public:
   // As they are shown, with the times of routes and joins as time since; or trimmed
   // (Trim.h) and without times, as they are stored. The filter chooses interfaces. Both
   // arguments outlive it.
   RouteEntries( const Mirror& mirror, const RouteFilter& filter, double now );
   RouteEntries( const Mirror& mirror, const RouteFilter& filter );

   // One or two.
   std::vector<nlohmann::ordered_json> of( const Route& route ) const;

 private:
   nlohmann::ordered_json entry( const Route& route ) const;
   // The source's incoming path on the RP tree, and the interfaces that pruned it
   // there.
   nlohmann::ordered_json rpt( const Route& route ) const;
   nlohmann::ordered_json interface( const Route& route, const Intf& intf ) const;
   void addGroup( nlohmann::ordered_json& json, const Route& route ) const;
   void addSince( nlohmann::ordered_json& json, const char* name,
                  double time ) const;

   const Mirror& mirror_;
   const RouteFilter& filter_;
   Published::GroupRanges ranges_;
   Form form_;
   double now_;
};

// The counters (null: unknown) and the rate of a stream, as far as they are known: no
// members without any.
nlohmann::ordered_json trafficJson( const Published::MfibCache* counters,
                                    const std::optional<Rate>& rate );

// The topology-tree-info with these entries.
nlohmann::ordered_json routesJson( const Mirror& mirror,
                                   std::vector<nlohmann::ordered_json> entries );

}
