// The attribute kind Table: a shared-memory table as a collection of an entity.
//
//    A( Table, route, Route, RouteTable, , "exported routes" )
//
// with `using RouteTable = MoxBrane::Table<Route>` declares on a MountedEntity:
//
//   route()             the table: find, has, visit, size, begin and end
//   route( key )        a copy of the record, or nothing: Table::at
//   routeIs( value )    writes or replaces, then notifies the key
//   routeIs( items )    writes many together: Table::is
//   routeDel( key )     removes and returns; silent and default when absent
//   routeDelAll()
//   routeNotify( key )  tells the observers
//   routeControl()      the mounting handle
//   hooks               onRoute( key ): a key changed; onRoute(): the table came,
//                       went or was replaced
//                       onRouteSoon( key ): of a burst of changes, onRoute( key )
//                       comes soon; to fetch memory for it, and nothing else
//
// The `initial` column may hold WriterOptions.
//
// The attribute kind CountedTable is a Table that counts its calls, in the event
// counters "routeIs", "routeDel" and "routeNotify" of the entity's name, and takes
// values built in place. The counters are registered in order of the rows. Beside
// what Table has, and as there unless said otherwise:
//
//   routeIs( value )         counts
//   routeInPlace()           free memory to build a value in: Table::InPlace
//   routeCommit( value )     counts, as routeIs, for such a value, or a pointer to one of
//                            the caller's, which is built in place first
//   routeDel( key )          counts, also when there was none
//   routeDelAll()            by routeDel, each key for itself
//   routeNotify( key )       counts, also when nobody observes
//   routeControlIs( control )   replaces the mounting handle
//   hooks               onRouteImmediate( key ): inside the call that raises the
//                       notification, before any observer's onRoute( key ), which is
//                       as immediate for this process's own writes; of what another
//                       process wrote both are heard when the loop takes it up, once
//                       for all pending changes of the key
//                       onRouteControl(): the mounting handle was replaced
//
// There, a write that the table refuses as corrupt is fatal: TableBase::Corruption.
#pragma once

#include "platform/entity/EventCounter.h"
#include "platform/mount/MountedEntity.h"
#include "platform/mount/Table.h"

#define MOX_ACCESS_Table( name, Name, type, ... )                         \
   const type& name() const {                                             \
      return name##_;                                                     \
   }                                                                      \
   std::optional<type::Value> name( const type::Key& key ) const {        \
      return name##_.at( key );                                           \
   }                                                                      \
   ::MoxBrane::CollectionControl* name##Control() const {                 \
      return name##_.control();                                           \
   }                                                                      \
   void name##Is( const type::Value& value ) {                            \
      name##_.is( value );                                                \
   }                                                                      \
   void name##Is( std::span<const type::Item> items ) {                   \
      name##_.is( items );                                                \
   }                                                                      \
   MOX_REFUSE( name##Is, void, type::Value, refuseValue )                 \
   type::Value name##Del( const type::Key& key ) {                        \
      return name##_.del( key );                                          \
   }                                                                      \
   void name##DelAll() {                                                  \
      name##_.delAll();                                                   \
   }                                                                      \
   void name##Notify( const type::Key& key ) {                            \
      MOX_NOTIFY_KEY( Name );                                             \
   }                                                                      \
                                                                          \
 private:                                                                 \
   type name##_{                                                          \
      *this,                                                              \
      #name,                                                              \
      { [this]( const type::Key& key ) { name##Notify( key ); },          \
        [this]( const type::Key& key ) { MOX_NOTIFY_KEY( Name##Soon ); }, \
        [this] { MOX_NOTIFY( Name ); } },                                 \
      ::Brane::WriterOptions( __VA_ARGS__ ) };                            \
                                                                          \
 public:

#define MOX_HOOK_Table( Name, type )                  \
   virtual void on##Name( const type::Key& ) {}       \
   virtual void on##Name##Soon( const type::Key& ) {} \
   virtual void on##Name() {}

#define MOX_SET_Table( name, type, initial ) nullptr

namespace MoxBrane {

// What a table's mutators and notifications count; "<table>Is" and so on.
struct TableCounters {
   TableCounters( const MountedEntity& owner, const Mox::String& table )
      : is( owner.name(), table + "Is" ),
        del( owner.name(), table + "Del" ),
        notify( owner.name(), table + "Notify" ) {}
   Mox::EventCounter is, del, notify;
};

}

#define MOX_ACCESS_CountedTable( name, Name, type, ... )                        \
   const type& name() const {                                                   \
      return name##_;                                                           \
   }                                                                            \
   std::optional<type::Value> name( const type::Key& key ) const {              \
      return name##_.at( key );                                                 \
   }                                                                            \
   ::MoxBrane::CollectionControl* name##Control() const {                       \
      return name##_.control();                                                 \
   }                                                                            \
   void name##ControlIs(                                                        \
      const ::Mox::Ptr<::MoxBrane::CollectionControl>& value ) {                \
      if ( name##_.controlIs( value ) ) MOX_NOTIFY( Name##Control );            \
   }                                                                            \
   void name##Is( const type::Value& value ) {                                  \
      name##Counters_.is.inc();                                                 \
      name##_.is( value );                                                      \
   }                                                                            \
   MOX_REFUSE( name##Is, void, type::Value, refuseValue )                       \
   type::InPlace name##InPlace() {                                              \
      return name##_.inPlace();                                                 \
   }                                                                            \
   void name##Commit( type::InPlace* value ) {                                  \
      name##Counters_.is.inc();                                                 \
      name##_.commit( value );                                                  \
   }                                                                            \
   void name##Commit( const type::Value* value ) {                              \
      name##Counters_.is.inc();                                                 \
      name##_.commit( value );                                                  \
   }                                                                            \
   type::Value name##Del( const type::Key& key ) {                              \
      name##Counters_.del.inc();                                                \
      return name##_.del( key );                                                \
   }                                                                            \
   void name##DelAll() {                                                        \
      ::Mox::Pin<Self> pin( this );                                             \
      for ( const type::Key& key : name##_.keys() ) name##Del( key );           \
   }                                                                            \
   void name##Notify( const type::Key& where ) {                                \
      name##Counters_.notify.inc();                                             \
      const type::Key key = where;                                              \
      MOX_NOTIFY_KEY( Name##Immediate );                                        \
      MOX_NOTIFY_KEY( Name );                                                   \
   }                                                                            \
                                                                                \
 private:                                                                       \
   ::MoxBrane::TableCounters name##Counters_{ *this, #name };                   \
   type name##_{ *this,                                                         \
                 #name,                                                         \
                 { [this]( const type::Key& key ) { name##Notify( key ); },     \
                   []( const type::Key& ) {}, [this] { MOX_NOTIFY( Name ); } }, \
                 ::Brane::WriterOptions( __VA_ARGS__ ),                         \
                 ::MoxBrane::TableBase::corruptionFatal };                      \
                                                                                \
 public:

#define MOX_HOOK_CountedTable( Name, type )                \
   virtual void on##Name( const type::Key& ) {}            \
   virtual void on##Name##Immediate( const type::Key& ) {} \
   virtual void on##Name() {}                              \
   virtual void on##Name##Control() {}

#define MOX_SET_CountedTable( name, type, initial ) nullptr
