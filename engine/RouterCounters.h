// The agent's counters, in the process-wide registry of event counters. Owners:
// "agent/packets" counts by message type, "agent/dropped" counts undecodable
// packets by reason, "agent/refused" counts decoded ones without effect by reason,
// "agent/sent" and "agent/unsent" count by message type what left and what could not,
// "agent/joins" entries of join/prune messages, "agent/elections" the outcomes of those
// on links.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "engine/Refusal.h"
#include "packet/DropReason.h"
#include "packet/Message.h"
#include "platform/entity/EventCounter.h"

namespace Router {

// What becomes of the joins and prunes that are to be sent.
#define AGENT_JOIN_EVENTS( V )                                              \
   V( triggered )     /* entries sent at a change */                        \
   V( periodic )      /* joins sent anew */                                 \
   V( suppressed )    /* joins put off, as another router sent the same */  \
   V( overriding )    /* joins brought forward, as another router pruned */ \
   V( prunesLeftOut ) /* (S,G,rpt) prunes without room beside their join */
MOX_ENUM( JoinEvent, AGENT_JOIN_EVENTS )
MOX_ENUM_TEXT( JoinEvent, AGENT_JOIN_EVENTS )

// What routers on a link agree on without a word to the operator.
#define AGENT_ELECTIONS( V )                                  \
   V( assertsWon )     /* this router goes on, others stop */ \
   V( assertsLost )    /* another forwards there now */       \
   V( querierChanges ) /* another one asks hosts, or this one again */
MOX_ENUM( Election, AGENT_ELECTIONS )
MOX_ENUM_TEXT( Election, AGENT_ELECTIONS )

class PIMSM_API RouterCounters {
 public:
   RouterCounters();

   void received( const Message& message );
   void sent( const Message& message );
   void unsent( const Message& message );
   void joins( JoinEvent event, uint64_t count = 1 ) {
      joins_[event]->inc( count );
   }
   void elected( Election outcome ) { elections_[outcome]->inc(); }
   // REQUIRES: a reason other than notDropped; droppedCount() requires it, too.
   void dropped( DropReason reason, uint64_t count = 1 ) {
      dropped_[reason - 1]->inc( count );
   }
   void refused( Refusal reason ) {
      refused_[reason]->inc();
      if ( onRefused_ ) onRefused_( reason );
   }
   // Also called with each refusal; empty: nobody is.
   void onRefusedIs( std::function<void( Refusal )> call ) {
      onRefused_ = std::move( call );
   }

   uint64_t droppedCount( DropReason reason ) const {
      return dropped_[reason - 1]->value();
   }
   uint64_t refusedCount( Refusal reason ) const {
      return refused_[reason]->value();
   }
   uint64_t receivedCount( PimType type ) const;

   // "packets: hello 34, join-prune 9; dropped: badPimVersion 4; refused: ..."; the
   // counts that are not zero.
   std::string text() const;

 private:
   using Counters = std::vector<std::unique_ptr<Mox::EventCounter>>;

   // PIM types, unknown ones, reports, queries
   Counters received_;
   Counters sent_;
   Counters unsent_;
   Counters joins_;
   Counters elections_;
   Counters dropped_;  // all but notDropped
   Counters refused_;
   std::function<void( Refusal )> onRefused_;
};

}
