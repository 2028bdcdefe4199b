#include "router/MfibWatch.h"

#include <algorithm>

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

// An older upcall may be of a source that has been silent since.
void MfibWatch::readUpcall( const RouteIntfKey& key ) {
   Published::MfibUpcall upcall;
   if ( !adopted_ || tables_->upcall().find( key, upcall ) != Brane::lookupFound )
      return;
   if ( upcall.kind == Published::sharedTreeUpcall &&
        age( upcall.last ) < wrongVifTime )
      protocol_.receiveShared( key.routeKey );
   const bool wrong =
      upcall.kind == Published::wrongVifUpcall && age( upcall.last ) < wrongVifTime;
   protocol_.receiveData( key.routeKey, key.intfId, age( upcall.last ), wrong );
}

void MfibWatch::readCache( const RouteKey& key ) {
   Published::MfibCache cache;
   if ( !adopted_ || tables_->cache().find( key, cache ) != Brane::lookupFound )
      return;
   Mox::Ptr<Routing::Pim::SparseMode::Route> route = model_->route( key );
   if ( route == nullptr ) return;
   route->kernelStatsIs( { cache.packets, cache.bytes, cache.wrongIf } );
   if ( cache.lastPacket > 0.0 )
      protocol_.receiveMore( key, age( cache.lastPacket ) );
}

}
