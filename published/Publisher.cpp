#include "published/Publisher.h"

#include <map>
#include <utility>

#include "platform/entity/EventCounter.h"
#include "platform/shm/Error.h"
#include "platform/trace/Trace.h"

namespace Published {

MOX_TRACE_FACILITY( trace, "Pimsm::Published" )

namespace {

// One refused record, for want of room for instance, does not stop the others.
template <class Table, class Change>
bool attempt( const Table& table, const Change& change ) {
   try {
      change();
      return true;
   } catch ( const Brane::TableError& e ) {
      MOX_TRACE( trace, 0, table.name() << ": " << e.what() );
      return false;
   }
}

template <class Table, class Record>
bool stands( const Table& table, const Record& record ) {
   Record standing;
   return table.find( record.key, standing ) == Brane::lookupFound &&
          standing == record;
}

template <class Table, class Record, class Write, class Remove>
bool publishAll( const Table& table, const std::vector<Record>& all,
                 const Write& write, const Remove& remove ) {
   std::map<typename Table::Key, const Record*> wanted;
   for ( const Record& record : all ) wanted.emplace( record.key, &record );
   std::vector<typename Table::Key> gone;
   table.visit( [&]( const Record& standing ) {
      if ( wanted.count( standing.key ) == 0 ) gone.push_back( standing.key );
      return true;
   } );
   bool done = true;
   for ( const auto& key : gone ) done &= attempt( table, [&] { remove( key ); } );
   for ( const auto& entry : wanted ) {
      const Record& record = *entry.second;
      if ( !stands( table, record ) )
         done &= attempt( table, [&] { write( record ); } );
   }
   return done;
}

}

bool publishInterfaces( FamilyStatus& tables, const std::vector<Interface>& all ) {
   return publishAll(
      tables.interface(), all,
      [&]( const Interface& record ) { tables.interfaceIs( record ); },
      [&]( Vantu::IntfId key ) { tables.interfaceDel( key ); } );
}

bool publishOwnAddresses( FamilyStatus& tables,
                          const std::vector<OwnAddress>& all ) {
   return publishAll(
      tables.ownAddress(), all,
      [&]( const OwnAddress& record ) { tables.ownAddressIs( record ); },
      [&]( const OwnAddressKey& key ) { tables.ownAddressDel( key ); } );
}

bool publishNeighbors( FamilyStatus& tables, const std::vector<Neighbor>& all ) {
   return publishAll(
      tables.neighbor(), all,
      [&]( const Neighbor& record ) { tables.neighborIs( record ); },
      [&]( const NeighborKey& key ) { tables.neighborDel( key ); } );
}

bool publishNeighborAddresses( FamilyStatus& tables,
                               const std::vector<NeighborAddress>& all ) {
   return publishAll(
      tables.neighborAddress(), all,
      [&]( const NeighborAddress& record ) { tables.neighborAddressIs( record ); },
      [&]( const NeighborAddressKey& key ) { tables.neighborAddressDel( key ); } );
}

bool publishDownstream( FamilyStatus& tables, const Downstream& record ) {
   return attempt( tables.downstream(), [&] {
      if ( record == Downstream{ record.key } ) {
         tables.downstreamDel( record.key );
      } else if ( !stands( tables.downstream(), record ) ) {
         tables.downstreamIs( record );
      }
   } );
}

bool publishRegistering( FamilyStatus& tables, const Registering& record ) {
   return attempt( tables.registering(), [&] {
      if ( record.until == 0.0 ) {
         tables.registeringDel( record.key );
      } else if ( !stands( tables.registering(), record ) ) {
         tables.registeringIs( record );
      }
   } );
}

bool publishRps( FamilyStatus& tables, const std::vector<Rp>& all ) {
   return publishAll(
      tables.rp(), all, [&]( const Rp& record ) { tables.rpIs( record ); },
      [&]( const RpKey& key ) { tables.rpDel( key ); } );
}

bool publishAccessRules( FamilyStatus& tables,
                         const std::vector<AccessRule>& all ) {
   return publishAll(
      tables.accessRule(), all,
      [&]( const AccessRule& record ) { tables.accessRuleIs( record ); },
      [&]( const AccessRuleKey& key ) { tables.accessRuleDel( key ); } );
}

bool publishSettings( FamilyStatus& tables, const std::vector<Setting>& all ) {
   return publishAll(
      tables.setting(), all,
      [&]( const Setting& record ) { tables.settingIs( record ); },
      [&]( const Text<32>& key ) { tables.settingDel( key ); } );
}

CounterPublisher::CounterPublisher( Mox::Clock& clock,
                                    Mox::Ptr<ProcessStatus> tables )
   : Notifiee( &clock ),
     tables_( std::move( tables ) ),
     last_( clock.now() - interval ) {}

void CounterPublisher::touch() {
   if ( wakeupTime() == Mox::Clock::never && Mox::EventCounterChanges::any() )
      wakeupTimeIs( last_ + interval );
}

// The first time, and when some have gone, the whole table.
void CounterPublisher::publish() {
   last_ = clock()->now();
   wakeupTimeIs( Mox::Clock::never );
   const auto changes = Mox::EventCounterChanges::take();
   const bool known = std::exchange( started_, true ) && !changes.gone;
   std::vector<Counter> records;
   for ( const Mox::EventCounter* counter :
         known ? changes.changed : Mox::eventCounters() ) {
      records.push_back(
         { { Text<160>( counter->owner() ), Text<48>( counter->name() ) },
           counter->value() } );
   }
   const auto write = [&]( const Counter& record ) {
      tables_->counterIs( record );
   };
   if ( known ) {
      for ( const Counter& record : records )
         attempt( tables_->counter(), [&] { write( record ); } );
      return;
   }
   publishAll( tables_->counter(), records, write,
               [&]( const CounterKey& key ) { tables_->counterDel( key ); } );
}

}
