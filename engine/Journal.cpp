#include "engine/Journal.h"

namespace Router {

namespace {

bool isUsual( Refusal reason ) {
   return reason == ownPacket || reason == otherUpstream ||
          reason == notTheQuerier || reason == linkLocalGroup;
}

}

Published::Event Journal::eventOf( Published::EventKind kind, const RouteKey& key,
                                   Vantu::IntfId intfId ) const {
   Event event;
   event.kind = kind;
   event.cause = now_.cause;
   event.intf = intfId;
   event.group = key.group;
   event.source = key.source;
   event.address = now_.address;
   event.message = now_.message;
   return event;
}

void Journal::tell( Event event ) {
   if ( !sink_ ) return;
   if ( event.cause == Published::noCause ) event.cause = now_.cause;
   put( event );
}

void Journal::refused( Refusal reason, const RouteKey& key ) {
   counters_.refused( reason );
   if ( !sink_ || isUsual( reason ) ) return;
   Event event = eventOf( Published::refused, key, now_.intfId );
   event.refusal = reason;
   event.value = now_.ends ? 1 : 0;
   put( event );
}

}
