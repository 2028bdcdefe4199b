// Names in the servers of NATS: of streams, and of the subjects in them. Pure functions;
// any thread.
//
//    stream KV_pimsm-state_FLEET_ROUTER    $KV.pimsm-state_FLEET_ROUTER.KEY
//    stream KV_pimsm-live_FLEET            $KV.pimsm-live_FLEET.ROUTER
//    stream pimsm-history_FLEET            pimsm.FLEET.history.ROUTER.VRF.FAMILY.GROUP
//
// A line of no group has the group "-", and one of no VRF the subject that ends with
// ROUTER.-
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "apps/store/Store.h"

namespace Fleet {

// "nats://HOST[:PORT][,HOST[:PORT]]..." as the URLs of its servers. Throws Mox::ParseError.
std::vector<std::string> serversOf( const StoreAddress& address );

struct NatsNames {
   std::string fleet;

   // Of a recorder, as a client.
   std::string writer( const std::string& router ) const {
      return fleet + '_' + router;
   }

   std::string stateStream( const std::string& router ) const;
   // The router of such a stream; empty: it is none of the fleet.
   std::string routerOf( std::string_view stream ) const;
   // What the subjects of its keys begin with, with a dot.
   std::string statePrefix( const std::string& router ) const;

   std::string liveStream() const;
   std::string liveSubject( const std::string& router ) const;

   std::string historyStream() const;
   std::string historyPrefix( const std::string& router ) const;
   std::string subjectOf( const std::string& router, const Event& event ) const;
   // A filter for the lines of which some may answer the question.
   std::string subjectOf( const std::string& router, const Past& past ) const;
   // Fills VRF, family and group from a subject. False if it is none of that router.
   bool fill( Event& event, const std::string& router,
              std::string_view subject ) const;
};

}
