// A reader of both families' tables that checks every notified record by the
// storm's rule, and counts. Prints "ready" once it listens, and on each SIGUSR1 a
// line:
//    <digest of IPv4> <digest of IPv6>; lost 0 broken 0 deleted 12 heard 345
// lost: standing routes whose deletion was notified; broken: records against the
// rule.
// usage: checking_reader ROOT
#include <csignal>
#include <iostream>

#include "export/RouteBraneRestartSm.h"
#include "platform/loop/RealClock.h"
#include "platform/loop/SignalWatcher.h"
#include "tests/apps/process/storm/Rule.h"

namespace Agent::Storm {
namespace {

struct Counts {
   unsigned lost = 0;
   unsigned broken = 0;
   unsigned deleted = 0;
   unsigned heard = 0;
   std::string firstBroken;
};

// Reads the tables' own bytes at each notification.
class TableCheck : public Sm::Brane::Status::NotifieeConst {
 public:
   TableCheck( const Sm::Brane::Status& tables, Counts& counts )
      : tables_( tables ), counts_( counts ) {
      notifierIs( &tables );
   }
   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override { check( tables_.route(), key ); }
   void onRouteIntf( const RouteIntfKey& key ) override {
      check( tables_.routeIntf(), key );
   }

 private:
   template <class Table>
   void check( const Table& table, const typename Table::Key& key ) {
      typename Table::Value record;
      ::Brane::Lookup result = table.find( key, record );
      ++counts_.heard;
      bool whole =
         result == ::Brane::lookupFound && record.key == key && keepsRule( record );
      if ( whole || result == ::Brane::lookupAbsent ||
           result == ::Brane::lookupBusy ) {
         return;
      }
      if ( counts_.broken++ == 0 ) counts_.firstBroken = valueToStrep( record );
   }

   const Sm::Brane::Status& tables_;
   Counts& counts_;
};

class DeleteCheck : public Sm::Status::NotifieeConst {
 public:
   DeleteCheck( const Sm::Status& model, Counts& counts )
      : model_( model ), counts_( counts ) {
      notifierIs( &model );
   }
   using NotifieeConst::onRoute;
   void onRoute( const RouteKey& key ) override {
      if ( model_.route( key ) != nullptr ) return;
      ++counts_.deleted;
      counts_.lost += isStanding( key );
   }

 private:
   const Sm::Status& model_;
   Counts& counts_;
};

class Mirror {
 public:
   Mirror( AddressFamily family, Corvex::EntityManager& manager, Mox::Clock& clock,
           Counts& counts )
      : tables_( Sm::Brane::Status::mountInDependencyOrder(
           manager, Sm::Brane::Status::mountPath( family, vrf_ ),
           Brane::tableReader, nullptr ) ),
        reader_( Sm::Brane::routeBraneReaderSmFactory( model_, tables_ ) ),
        restart_( Sm::Brane::routeBraneRestartSmFactory(
           model_, tables_, Brane::tableReader, &clock ) ),
        tableCheck_( *tables_, counts ),
        deleteCheck_( *model_, counts ) {}

   bool initialized() const { return model_->initialized(); }

   std::string digest() const {
      std::set<std::string> records;
      for ( const Sm::Route& route : model_->route() ) {
         records.insert( textOf( Sm::Brane::doGetBraneRouteFromRoute( route ) ) );
         for ( const Sm::Intf& intf : route.routeIntf() ) {
            records.insert( valueToStrep(
               Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ) ) );
         }
      }
      return digestOf( records );
   }

 private:
   L3::VrfName vrf_{ "default" };
   Mox::Ptr<Sm::Status> model_ = Sm::statusFactory( vrf_ );
   Mox::Ptr<Sm::Brane::Status> tables_;
   Mox::Ptr<Sm::Brane::RouteBraneReaderSm> reader_;
   Mox::Ptr<Sm::Brane::RouteBraneRestartSm> restart_;
   TableCheck tableCheck_;
   DeleteCheck deleteCheck_;
};

int run( const char* root ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop, root );
   Counts counts;
   Mirror ipv4( AddressFamily::ipv4, manager, clock, counts );
   Mirror ipv6( AddressFamily::ipv6, manager, clock, counts );
   Mox::SignalWatcher asked( loop, { SIGUSR1 }, [&]( int ) {
      std::cout << ipv4.digest() << ' ' << ipv6.digest() << "; lost " << counts.lost
                << " broken " << counts.broken << " deleted " << counts.deleted
                << " heard " << counts.heard << ' ' << counts.firstBroken
                << std::endl;
   } );
   bool said = false;
   Mox::Loop::TurnEnd ready( loop, [&] {
      if ( said || !ipv4.initialized() || !ipv6.initialized() ) return;
      said = true;
      std::cout << "ready" << std::endl;
   } );
   loop.run();
   return 0;
}

}
}

int main( int argc, char** argv ) {
   return argc == 2 ? Agent::Storm::run( argv[1] ) : 2;
}
