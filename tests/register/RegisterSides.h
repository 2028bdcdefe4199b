// The register tables of an agent and of a reader. Each side has an entity manager
// of its own, as two processes would have, and observers that record their
// notifications.
#pragma once

#include "platform/loop/TestClock.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"
#include "tests/support/Recorder.h"
#include "tests/support/TempRoot.h"

// "<name> key" in normal mode, "<name>! key" in immediate mode.
#define PIMSM_HEAR_CountedTable( name, Name, type )            \
   void on##Name( const type::Key& key ) override {            \
      this->hear( #name, key );                                \
   }                                                           \
   void on##Name##Immediate( const type::Key& key ) override { \
      this->hear( #name "!", key );                            \
   }                                                           \
   PIMSM_HEAR_PLAIN( name, Name )                              \
   void on##Name##Control() override {                         \
      this->hear( #name "Control" );                           \
   }

namespace Routing::Pim::SparseMode::Test {

using Mox::Test::Heard;

PIMSM_TEST_RECORDER( RegisterRecorder, RegisterStatus,
                     PIMSM_REGISTER_STATUS_ATTRIBUTES )
PIMSM_TEST_RECORDER( AdvertisedRecorder, AdvertisedSgStatus,
                     PIMSM_ADVERTISED_SG_STATUS_ATTRIBUTES )

inline RouteKey keyOf( unsigned number ) {
   return { Vantu::IpGenAddr( "198.51.100." + std::to_string( number ) ),
            Vantu::IpGenAddr( "233.252.0.1" ) };
}
inline InternalRouteKey entryOf( unsigned number ) {
   return InternalRouteKey( keyOf( number ) );
}
inline AdvertisedSg advertisedOf( unsigned number, Mox::StringView rp = "192.0.2.1",
                                  bool anycast = false ) {
   return { keyOf( number ), Vantu::IpGenAddr( rp ), anycast };
}

struct RegisterSide {
   static constexpr uint32_t kCapacity = 8;

   RegisterSide( Mox::TestClock& clock, const std::string& root,
                 ::Brane::TableRole role )
      : manager( clock, nullptr, root ) {
      RegisterCapacities capacities;
      capacities.anycastDiscoveredSg = capacities.drDiscoveredSg = kCapacity;
      capacities.noRegisterOif = capacities.registerOif = kCapacity;
      constexpr auto kFamily = Vantu::AddressFamily::ipv4;
      const L3::VrfName vrf( "red" );
      status = RegisterStatus::mount(
         manager, RegisterStatus::mountPath( kFamily, vrf ), role, capacities );
      advertised = AdvertisedSgStatus::mount(
         manager, AdvertisedSgStatus::mountPath( kFamily, vrf ), role, kCapacity );
   }

   Corvex::EntityManager manager;
   Mox::Ptr<RegisterStatus> status;
   Mox::Ptr<AdvertisedSgStatus> advertised;
};

}
