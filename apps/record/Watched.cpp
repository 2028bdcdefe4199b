#include "apps/record/Watched.h"

#include <algorithm>

#include "apps/mirror/Events.h"

namespace Fleet {

namespace Sm = Routing::Pim::SparseMode;

namespace {

// The tables of which one key of the store holds all.
class Published : public ::Published::FamilyStatus::NotifieeConst {
 public:
   Published( const ::Published::FamilyStatus& tables,
              std::function<void( Key::Kind )> touch )
      : touch_( std::move( touch ) ) {
      notifierIs( &tables );
   }

 private:
   using NotifieeConst::onAccessRule;
   using NotifieeConst::onInterface;
   using NotifieeConst::onNeighbor;
   using NotifieeConst::onNeighborAddress;
   using NotifieeConst::onOwnAddress;
   using NotifieeConst::onRp;
   using NotifieeConst::onSetting;
   void onInterface( const Vantu::IntfId& ) override { touch_( Key::links ); }
   void onOwnAddress( const ::Published::OwnAddressKey& ) override {
      touch_( Key::links );
   }
   void onNeighbor( const ::Published::NeighborKey& ) override {
      touch_( Key::links );
   }
   void onNeighborAddress( const ::Published::NeighborAddressKey& ) override {
      touch_( Key::links );
   }
   void onRp( const ::Published::RpKey& ) override { touch_( Key::rps ); }
   void onSetting( const ::Published::Text<32>& ) override { touch_( Key::rps ); }
   void onAccessRule( const ::Published::AccessRuleKey& ) override {
      touch_( Key::rps );
   }
   // A table is there, or another one.
   void onInterface() override { touch_( Key::links ); }
   void onOwnAddress() override { touch_( Key::links ); }
   void onNeighbor() override { touch_( Key::links ); }
   void onNeighborAddress() override { touch_( Key::links ); }
   void onRp() override { touch_( Key::rps ); }
   void onSetting() override { touch_( Key::rps ); }
   void onAccessRule() override { touch_( Key::rps ); }

   std::function<void( Key::Kind )> touch_;
};

// Of a stream; null: of all in the tables.
using TouchStream = std::function<void( const RouteKey* key )>;

class Registers : public Sm::RegisterStatus::NotifieeConst {
 public:
   Registers( const Sm::RegisterStatus& tables, TouchStream touch )
      : touch_( std::move( touch ) ) {
      notifierIs( &tables );
   }

 private:
   using NotifieeConst::onAnycastDiscoveredSg;
   using NotifieeConst::onDrDiscoveredSg;
   using NotifieeConst::onNoRegisterOif;
   using NotifieeConst::onRegisterOif;
   void onAnycastDiscoveredSg( const RouteKey& key ) override { touch_( &key ); }
   void onAnycastDiscoveredSg() override { touch_( nullptr ); }
   void onDrDiscoveredSg( const RouteKey& key ) override { touch_( &key ); }
   void onDrDiscoveredSg() override { touch_( nullptr ); }
   void onNoRegisterOif( const RouteKey& key ) override { touch_( &key ); }
   void onNoRegisterOif() override { touch_( nullptr ); }
   void onRegisterOif( const RouteKey& key ) override { touch_( &key ); }
   void onRegisterOif() override { touch_( nullptr ); }

   TouchStream touch_;
};

class Advertised : public Sm::AdvertisedSgStatus::NotifieeConst {
 public:
   Advertised( const Sm::AdvertisedSgStatus& tables, TouchStream touch )
      : touch_( std::move( touch ) ) {
      notifierIs( &tables );
   }

 private:
   using NotifieeConst::onColl;
   void onColl( const RouteKey& key ) override { touch_( &key ); }
   void onColl() override { touch_( nullptr ); }

   TouchStream touch_;
};

}

Watched::Watched( Show::Mirror& mirror, double sample, size_t top, Touch touched )
   : mirror_( mirror ),
     scope_{ mirror.vrf(), mirror.family },
     samples_( mirror, sample, top ),
     touch_( std::move( touched ) ),
     oneRoute_( mirror, [this]( const RouteKey& key ) -> const Intfs& {
        static const Intfs kNone;
        const auto found = intfs_.find( key );
        return found != intfs_.end() ? found->second : kNone;
     } ) {
   const auto registers = [this]( const RouteKey* key ) {
      key != nullptr ? touch( Key::registers, *key ) : touchRegisters();
   };
   observers_ = { std::make_shared<Published>(
                     *mirror.agent, [this]( Key::Kind kind ) { touch( kind ); } ),
                  std::make_shared<Registers>( *mirror.registers, registers ),
                  std::make_shared<Advertised>( *mirror.advertised, registers ) };
   notifierIs( mirror.tables.get() );
   if ( !mirror.writerAlive() )
      goneSince_ = Show::monotonicNow() - mirror.sinceLastWrite().value_or( 0.0 );
   noteAll();
}

void Watched::note( const RouteKey& key ) {
   if ( mirror_.tables->route().has( key ) ) {
      routes_[key.group].insert( key );
      return;
   }
   const auto found = routes_.find( key.group );
   if ( found == routes_.end() ) return;
   found->second.erase( key );
   if ( found->second.empty() ) routes_.erase( found );
}

void Watched::note( const Routing::Pim::RouteIntfKey& key ) {
   Intfs& intfs = intfs_[key.routeKey];
   const auto at = std::lower_bound( intfs.begin(), intfs.end(), key.intfId );
   const bool known = at != intfs.end() && *at == key.intfId;
   const bool there = mirror_.tables->routeIntf().has( key );
   if ( there && !known ) intfs.insert( at, key.intfId );
   if ( !there && known ) intfs.erase( at );
   if ( intfs.empty() ) intfs_.erase( key.routeKey );
}

void Watched::noteAll() {
   routes_.clear();
   intfs_.clear();
   for ( const RouteKey& key : mirror_.tables->route().keys() )
      routes_[key.group].insert( key );
   for ( const auto& key : mirror_.tables->routeIntf().keys() )
      intfs_[key.routeKey].push_back( key.intfId );
   for ( auto& [key, intfs] : intfs_ ) std::sort( intfs.begin(), intfs.end() );
}

Watched::Counts Watched::counts() const {
   Counts counts;
   for ( const auto& [group, keys] : routes_ ) {
      for ( const RouteKey& key : keys )
         ++( key.source.isUnspecified() ? counts.wildcards : counts.sources );
   }
   return counts;
}

// The table is there, or another one: what it has differs from what was known.
void Watched::onRoute() {
   touchRoutes();
   noteAll();
   touchRoutes();
}

void Watched::onRoute( const RouteKey& key ) {
   note( key );
   touchRoute( key );
}

void Watched::onRouteIntf( const Routing::Pim::RouteIntfKey& key ) {
   note( key );
   touchRoute( key.routeKey );
}

// The entries of a group's sources follow the (*,G) route's.
void Watched::touchRoute( const RouteKey& key ) {
   touch( Key::route, key );
   if ( !key.source.isUnspecified() ) return;
   const auto found = routes_.find( key.group );
   if ( found == routes_.end() ) return;
   for ( const RouteKey& source : found->second ) touch( Key::route, source );
}

void Watched::touchRoutes() {
   for ( const auto& [group, keys] : routes_ ) {
      for ( const RouteKey& key : keys ) touch( Key::route, key );
   }
}

void Watched::touchAll() {
   for ( const Key::Kind kind : { Key::table, Key::links, Key::rps } )
      touch( kind );
   touchRoutes();
   touchRegisters();
}

void Watched::touchRegisters() {
   const auto& tables = *mirror_.registers;
   for ( const auto* table :
         { &tables.registerOif(), &tables.noRegisterOif(), &tables.drDiscoveredSg(),
           &tables.anycastDiscoveredSg() } ) {
      for ( const auto& key : table->keys() ) touch( Key::registers, key );
   }
   for ( const auto& key : mirror_.advertised->coll().keys() )
      touch( Key::registers, key );
}

void Watched::lookAtWriter( double now ) {
   const bool alive = mirror_.writerAlive();
   if ( alive == !goneSince_ ) return;
   goneSince_ = alive ? std::nullopt : std::optional( now );
   if ( alive ) restsUntil_ = now + restartPause;
   touch( Key::table );
}

bool Watched::rests( double now ) const {
   return now < restsUntil_;
}

}
