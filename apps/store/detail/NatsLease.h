// A recorder's right to a router: a key that vanishes unless its holder renews it.
#pragma once

#include "apps/store/detail/Nats.h"
#include "apps/store/detail/NatsNames.h"

namespace Fleet {

class NatsLease {
 public:
   // Takes it. Throws StoreHeld if another recorder has it, and as checkNats(). One whose
   // process is seen to be gone, on this host, has it no more.
   NatsLease( NatsConnection& connection, const NatsNames& names,
              const std::string& router, const std::string& instance );
   NatsLease( const NatsLease& ) = delete;
   NatsLease& operator=( const NatsLease& ) = delete;
   // Gives it back where that can be done at once.
   ~NatsLease();

   // Renews it if it is time to. Throws as the constructor.
   void renew();

   // The run of the recorder that holds a lease with this value; empty: it says none.
   static std::string instanceOf( std::string_view value );

 private:
   // Somewhat less than the time between two calls, or each other one would renew it.
   static constexpr double interval = Writer::beating - 0.5;  // s

   bool claim( uint64_t revision );
   void take();

   NatsConnection& connection_;
   std::string stream_, subject_, value_;
   uint64_t revision_ = 0;
   double renewed_ = 0.0;
};

}
