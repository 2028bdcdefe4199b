// What the engines tell people: counts of what was received and refused, and events
// with their causes. One for each VRF and family; the engines share it.
//
// An event's cause and neighbour are those of what is being handled: the engines'
// callers say what that is by a Handling, the innermost one counts.
#pragma once

#include <functional>
#include <utility>

#include "engine/RouterCounters.h"
#include "platform/pim/RouteKey.h"
#include "published/Event.h"

namespace Router {

class PIMSM_API Journal {
 public:
   using RouteKey = Routing::Pim::RouteKey;
   using Event = Published::Event;
   // Gets each event, on the event loop's thread; must not call the router.
   using Sink = std::function<void( const Event& )>;

   // Without a sink events go nowhere. The counters outlive it.
   explicit Journal( RouterCounters& counters, Sink sink = {} )
      : counters_( counters ), sink_( std::move( sink ) ) {}
   Journal( const Journal& ) = delete;
   Journal& operator=( const Journal& ) = delete;

   RouterCounters& counters() { return counters_; }

   // What is handled now. Ends with the object.
   class [[nodiscard]] Handling {
    public:
      Handling( Journal& journal, Published::EventCause cause,
                Vantu::IntfId intfId = {}, const Vantu::IpGenAddr& address = {},
                Published::MessageKind message = Published::noMessage )
         : journal_( journal ), before_( journal.now_ ) {
         journal.now_ = { cause, intfId, address, message, false };
      }
      ~Handling() { journal_.now_ = before_; }
      Handling( const Handling& ) = delete;
      Handling& operator=( const Handling& ) = delete;

    private:
      friend class Journal;
      struct What {
         // Outside of all: a timer.
         Published::EventCause cause = Published::byExpiry;
         Vantu::IntfId intfId;
         Vantu::IpGenAddr address;
         Published::MessageKind message = Published::noMessage;
         bool ends = false;
      };
      Journal& journal_;
      What before_;
   };
   // What is handled asks for nothing, as a prune or a leave. Ends with the object.
   class [[nodiscard]] Ending {
    public:
      explicit Ending( Journal& journal, bool ends = true )
         : journal_( journal ),
           before_( std::exchange( journal.now_.ends, ends ) ) {}
      ~Ending() { journal_.now_.ends = before_; }
      Ending( const Ending& ) = delete;
      Ending& operator=( const Ending& ) = delete;

    private:
      Journal& journal_;
      bool before_;
   };

   bool listens() const { return sink_ != nullptr; }
   // The neighbour, host or router of whom a message is handled; unspecified: none.
   const Vantu::IpGenAddr& address() const { return now_.address; }
   Published::EventCause cause() const { return now_.cause; }

   // An event of the route, on the interface if there is one. The cause, and the
   // address where the event names none, are those of what is handled.
   void tell( Published::EventKind kind, const RouteKey& key,
              Vantu::IntfId intfId = {} ) {
      if ( sink_ ) put( eventOf( kind, key, intfId ) );
   }
   // The event may have its own fields; the cause is set where it has none.
   Event eventOf( Published::EventKind kind, const RouteKey& key,
                  Vantu::IntfId intfId = {} ) const;
   void tell( Event event );

   // Counts the refusal and tells of it: of what came by the interface that is
   // handled now. What every router refuses all the time is only counted.
   void refused( Refusal reason, const RouteKey& key = {} );
   // As above, if there is a reason. True without one.
   bool accepted( std::optional<Refusal> reason, const RouteKey& key = {} ) {
      if ( reason ) refused( *reason, key );
      return !reason;
   }

 private:
   void put( const Event& event ) { sink_( event ); }

   RouterCounters& counters_;
   Sink sink_;
   Handling::What now_;
};

}
