// The links of one VRF and family, as the configuration names them. Event-loop
// thread; the constructor's arguments outlive it.
#pragma once

#include <map>
#include <memory>
#include <unordered_map>

#include "engine/Link.h"
#include "model/Status.h"

namespace Router {

class PIMSM_API Links {
 public:
   struct Observer {
      // A DR role, a neighbour or an address may have changed.
      std::function<void()> changed = [] {};
      std::function<void( Vantu::IntfId, const Vantu::IpGenAddr&, NeighborEvent )>
         neighbor = []( Vantu::IntfId, const Vantu::IpGenAddr&, NeighborEvent ) {};
      // The link has left the configuration, lost its addresses, or is not up; and with
      // it its neighbours, of whom `neighbor` does not tell.
      std::function<void( Vantu::IntfId, const std::vector<Vantu::IpGenAddr>& )>
         gone = []( Vantu::IntfId, const std::vector<Vantu::IpGenAddr>& ) {};
      // A link has come, with addresses and up.
      std::function<void( Vantu::IntfId )> came = []( Vantu::IntfId ) {};
      // Another router is the link's DR, or one is: the former and the present one.
      std::function<void( Vantu::IntfId, const Vantu::IpGenAddr&,
                          const Vantu::IpGenAddr& )>
         dr = []( Vantu::IntfId, const Vantu::IpGenAddr&,
                  const Vantu::IpGenAddr& ) {};
   };
   // What a former process left of the hellos; empty: nothing.
   using Kept = std::function<std::optional<HelloMachine::Kept>( Vantu::IntfId )>;

   // Writes each link's address and DR role to `pimStatus`. The configuration is read
   // again in configChanged().
   Links( Vantu::AddressFamily family, const VrfConfig& config,
          Mox::Ptr<Routing::Pim::Status> pimStatus, Mox::Clock& clock,
          Sender& sender, Observer observer );

   // Makes the links. Call it once.
   void start( const Kept& kept );
   void configChanged() { update( {} ); }

   const std::map<Vantu::IntfId, Link>& all() const { return links_; }
   // Null without such a link.
   Link* find( Vantu::IntfId intfId );
   const Link* find( Vantu::IntfId intfId ) const;

   // This router leaves all links by intent.
   void sayGoodbye();

 private:
   void update( const Kept& kept );
   void updateLink( const InterfaceConfig& interface,
                    const std::vector<InterfaceAddress>& addresses,
                    const Kept& kept );
   void remove( Vantu::IntfId intfId );
   void forget( Vantu::IntfId intfId );
   void updateDr( Vantu::IntfId intfId );

   Vantu::AddressFamily family_;
   const VrfConfig& config_;
   Mox::Ptr<Routing::Pim::Status> pimStatus_;
   Mox::Clock& clock_;
   Sender& sender_;
   Observer observer_;
   std::map<Vantu::IntfId, Link> links_;
   std::unordered_map<Vantu::IntfId, Link*>
      byId_;  // each packet's link is looked for
   std::map<Vantu::IntfId, Vantu::IpGenAddr> drs_;
};

}
