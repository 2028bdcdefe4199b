// The attribute kind Table: a shared-memory table as a collection of an entity.
//
//    A( Table, route, Route, RouteTable, , "exported routes" )
//
// with `using RouteTable = MoxBrane::Table<Route>` declares on a MountedEntity:
//
//   route()             the table: find, has, visit, size
//   routeIs( value )    writes or replaces, then notifies the key
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
#pragma once

#include "platform/mount/MountedEntity.h"
#include "platform/mount/Table.h"

#define MOX_ACCESS_Table( name, Name, type, ... )                         \
   const type& name() const {                                             \
      return name##_;                                                     \
   }                                                                      \
   ::MoxBrane::CollectionControl* name##Control() const {                 \
      return name##_.control();                                           \
   }                                                                      \
   void name##Is( const type::Value& value ) {                            \
      name##_.is( value );                                                \
   }                                                                      \
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
