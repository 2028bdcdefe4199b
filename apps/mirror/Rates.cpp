#include "apps/mirror/Rates.h"

#include <cstdlib>
#include <utility>

namespace Show {

using Published::MfibCache;
using Routing::Pim::RouteKey;

std::optional<double> counterInterval( const Mirror& mirror ) {
   const auto text = mirror.mfibSetting( Published::MfibStatus::countersSetting );
   if ( !text ) return std::nullopt;
   return std::strtod( text->c_str(), nullptr );
}

Rates::Rates( const Mirror& mirror ) : mirror_( mirror ) {
   read();
}

void Rates::read() {
   before_ = std::exchange( last_, {} );
   mirror_.mfib->cache().visit( [this]( const MfibCache& record ) {
      last_.emplace( record.key, record );
      return true;
   } );
}

bool Rates::known() const {
   return mirror_.mfib->cacheControl()->mountStatus() == MoxBrane::mountReady &&
          mirror_.mfib->cache().writerAlive();
}

const MfibCache* Rates::counters( const RouteKey& key ) const {
   const auto found = last_.find( key );
   return found == last_.end() ? nullptr : &found->second;
}

std::optional<Rate> Rates::rate( const RouteKey& key ) const {
   const MfibCache* now = counters( key );
   const auto found = before_.find( key );
   if ( now == nullptr || found == before_.end() || !known() ) return std::nullopt;
   const MfibCache& then = found->second;
   if ( now->packets == then.packets ) return Rate();
   const double seconds = now->lastPacket - then.lastPacket;
   const bool anew = now->packets < then.packets || now->bytes < then.bytes;
   if ( anew || then.lastPacket == 0.0 || !( seconds > 0.0 ) ) return std::nullopt;
   constexpr double kBits = 8.0;
   return Rate{ static_cast<double>( now->packets - then.packets ) / seconds,
                static_cast<double>( now->bytes - then.bytes ) * kBits / seconds };
}

namespace {

class Alarm : public Mox::Clock::Notifiee {
 public:
   Alarm( Mirrors& mirrors, double seconds )
      : Notifiee( &mirrors.clock() ), loop_( mirrors.loop() ) {
      wakeupTimeIs( clock()->now() + seconds );
   }

 private:
   void onTime() override { loop_.stop(); }
   Mox::Loop& loop_;
};

}

void pause( Mirrors& mirrors, double seconds ) {
   const Alarm alarm( mirrors, seconds );
   mirrors.loop().run();
}

}
