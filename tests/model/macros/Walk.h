// A random walk through the states of a VRF; PIMSM_SEED repeats one.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

#include "tests/model/macros/World.h"

namespace Routing::Pim::SparseMode::Test {

// Each step draws some of the facts anew.
class Walk {
 public:
   Walk() {
      std::printf( "seed %u\n", seed_ );
      drawPort( 0 );
   }
   unsigned seed() const { return seed_; }

   const World& step() {
      switch ( pick( 8 ) ) {
         case 0:
            world_.wcRoute = pick( 4 ) != 0;
            break;
         case 1:
            drawUpper( world_.wc );
            break;
         case 2:
            drawUpper( world_.sg );
            break;
         case 3:
            world_.received = uint8_t( pick( kReceived ) );
            break;
         case 4:
            world_.failover = uint8_t( pick( 16 ) );
            break;
         default:
            drawPort( pick( kPorts ) );
      }
      return world_;
   }

 private:
   unsigned pick( unsigned count ) { return dice_() % count; }
   bool coin() { return pick( 2 ) != 0; }

   void drawUpper( Upper& upper ) {
      upper = { Upstream( pick( 8 ) ), Upstream( pick( 8 ) ), coin(), coin(),
                coin() };
   }
   Facts facts() {
      return { pick( 4 ) != 0, Join( pick( 3 ) ),  Rpt( pick( 5 ) ), coin(),
               coin(),         Winner( pick( 8 ) ) };
   }
   // Port 0 has the (S,G) record of which the macros are asked.
   void drawPort( unsigned number ) {
      Port& port = world_.ports[number];
      if ( coin() ) port.wc = facts();
      if ( coin() ) port.sg = facts();
      if ( coin() ) port.pim = Pim( pick( 5 ) );
      world_.ports[0].sg.record = true;
   }

   static unsigned newSeed() {
      const char* fixed = std::getenv( "PIMSM_SEED" );
      return fixed != nullptr ? unsigned( std::atoi( fixed ) )
                              : std::random_device()();
   }

   const unsigned seed_ = newSeed();
   std::mt19937 dice_{ seed_ };
   World world_;
};

}
