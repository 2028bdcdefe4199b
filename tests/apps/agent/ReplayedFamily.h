// A router on the link of a capture, for its packets to be played into.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "apps/agent/FamilyInstance.h"
#include "apps/agent/Replay.h"
#include "apps/agent/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"

namespace Agent {

struct ReplayedFamily {
   explicit ReplayedFamily( const VrfConfig& config )
      : family( config.interfaces[0].addresses[0].address.family(), config, manager,
                real, clock, counters ) {
      while ( !family.ready() ) real.runPass();
      family.adopt();
   }

   // As assumed for the router's address; small.
   static VrfConfig configFor( const char* router ) {
      VrfConfig config =
         assumedConfig( Vantu::IpGenAddr( Mox::StringView( router ) ) ).vrfs[0];
      config.maxRoutes = config.maxRouteIntfs = 100;
      return config;
   }

   // Each frame at its time, with its number from 1 on; until one fails fatally.
   void play(
      const std::string& path,
      const std::function<void( int number, const Replay::Frame& )>& receive ) {
      Replay replay( { { path, "" } } );
      replay.start( clock, real.now() );
      for ( int number = 1; !replay.atEnd(); ++number ) {
         SCOPED_TRACE( fmt::format( "{} packet {}", path, number ) );
         replay.play(
            clock, [] { return true; },
            [&]( const Replay::Frame& frame ) { receive( number, frame ); } );
         if ( testing::Test::HasFatalFailure() ) return;
      }
   }

   Mox::Test::TempRoot root;
   Mox::TestClock real{ 10000.0 };
   AgentClock clock{ real };
   AgentCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   FamilyInstance family;
};

}
