#include "router/MfibWatch.h"

#include <algorithm>
#include <limits>

namespace Router {

using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

class MfibWatch::MoxTables : public Published::MfibStatus::NotifieeConst {
 public:
   MoxTables( MfibWatch& watch, const Published::MfibStatus& tables )
      : watch_( watch ) {
      notifierIs( &tables );
   }
   void onUpcall( const RouteIntfKey& key ) override { watch_.readUpcall( key ); }
   void onUpcall() override { watch_.readAll(); }
   void onCache( const RouteKey& key ) override { watch_.readCache( key ); }
   void onCache() override { watch_.readAll(); }

 private:
   MfibWatch& watch_;
};

MfibWatch::MfibWatch( Mox::Ptr<Published::MfibStatus> tables,
                      Mox::Ptr<Routing::Pim::SparseMode::Status> model,
                      Protocol& protocol, Mox::Clock& real )
   : tables_( std::move( tables ) ),
     model_( std::move( model ) ),
     protocol_( protocol ),
     real_( real ),
     moxTables_( std::make_unique<MoxTables>( *this, *tables_ ) ) {}

MfibWatch::~MfibWatch() = default;

void MfibWatch::adopted() {
   adopted_ = true;
   readAll();
}

void MfibWatch::readAll() {
   if ( !adopted_ ||
        tables_->upcallControl()->mountStatus() != MoxBrane::mountReady ||
        tables_->cacheControl()->mountStatus() != MoxBrane::mountReady )
      return;
   for ( const RouteIntfKey& key : tables_->upcall().keys() ) readUpcall( key );
   for ( const RouteKey& key : tables_->cache().keys() ) readCache( key );
}

double MfibWatch::age( double time ) const {
   return std::max( 0.0, real_.now() - time );
}

double MfibWatch::packetAge( const RouteKey& key ) const {
   Published::MfibCache cache;
   double last = 0.0;
   if ( tables_->cache().find( key, cache ) == Brane::lookupFound )
      last = cache.lastPacket;
   if ( const auto shared = lastShared_.find( key.group );
        key.source.isUnspecified() && shared != lastShared_.end() )
      last = std::max( last, shared->second );
   return last > 0.0 ? age( last ) : std::numeric_limits<double>::infinity();
}

// An older upcall may be of a source that has been silent since.
void MfibWatch::readUpcall( const RouteIntfKey& key ) {
   Published::MfibUpcall upcall;
   if ( !adopted_ || tables_->upcall().find( key, upcall ) != Brane::lookupFound )
      return;
   if ( upcall.kind == Published::sharedTreeUpcall &&
        age( upcall.last ) < wrongVifTime )
      protocol_.receiveShared( key.routeKey, 0.0 );
   const bool wrong =
      upcall.kind == Published::wrongVifUpcall && age( upcall.last ) < wrongVifTime;
   protocol_.receiveData( key.routeKey, key.intfId, age( upcall.last ), wrong );
}

void MfibWatch::readCache( const RouteKey& key ) {
   Published::MfibCache cache;
   if ( !adopted_ ) return;
   if ( tables_->cache().find( key, cache ) != Brane::lookupFound ) {
      sent_.erase( key );
      const Vantu::IpGenAddr any =
         Vantu::IpGenAddr::unspecified( key.group.family() );
      if ( model_->route( RouteKey{ any, key.group } ) == nullptr )
         lastShared_.erase( key.group );
      return;
   }
   readShared( cache );
   Mox::Ptr<Routing::Pim::SparseMode::Route> route = model_->route( key );
   if ( route == nullptr ) return;
   route->kernelStatsIs( { cache.packets, cache.bytes, cache.wrongIf } );
   if ( cache.lastPacket > 0.0 )
      protocol_.receiveMore( key, age( cache.lastPacket ) );
}

// The forwarding process has an entry for each source on a shared tree that members
// listen to. Its counters begin anew with the entry.
void MfibWatch::readShared( const Published::MfibCache& cache ) {
   if ( cache.key.source.isUnspecified() ) return;
   const auto* route = std::as_const( *model_ ).route( cache.key );
   if ( route != nullptr && route->spTree() ) {
      sent_.erase( cache.key );
      return;
   }
   double& last = lastShared_.try_emplace( cache.key.group, 0.0 ).first->second;
   last = std::max( last, cache.lastPacket );
   const double now = real_.now();
   const Sent is{ now, cache.packets, cache.bytes, cache.wrongIf };
   Sent& before = sent_.try_emplace( cache.key, is ).first->second;
   if ( is.bytes < before.bytes || is.packets < before.packets ||
        is.wrongIf < before.wrongIf ) {
      before = is;
      return;
   }
   if ( now - before.time < rateTime ) return;
   constexpr double kBits = 8.0 / 1000.0;  // in a byte, kbit
   // The bytes are those of all packets, as large on the one side as on the other.
   const auto flowed = static_cast<double>( is.packets - before.packets );
   const auto wrong = static_cast<double>( is.wrongIf - before.wrongIf );
   const double share = flowed == 0.0 ? 0.0 : flowed / ( flowed + wrong );
   const double rate = static_cast<double>( is.bytes - before.bytes ) * share *
                       kBits / ( now - before.time );
   before = is;
   if ( rate > 0.0 ) protocol_.receiveShared( cache.key, rate );
}

}
