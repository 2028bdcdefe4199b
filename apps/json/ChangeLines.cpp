#include "apps/json/ChangeLines.h"

#include <algorithm>

#include "apps/mirror/Events.h"

namespace Show {

ChangeLines::ChangeLines( Mirrors& mirrors, const RouteFilter& filter, Line line,
                          Write write )
   : Notifiee( &mirrors.clock() ),
     mirrors_( mirrors ),
     filter_( filter ),
     line_( std::move( line ) ),
     write_( std::move( write ) ) {
   for ( const auto& mirror : mirrors.all() ) follow( *mirror, false );
   touch();
}

void ChangeLines::follow( const Mirror& mirror, bool isNew ) {
   feeds_.push_back(
      std::make_unique<ChangeFeed>( mirror, isNew, [this] { touch(); } ) );
}

void ChangeLines::touch() {
   wakeupTimeIs( std::min( wakeupTime(), clock()->now() + interval ) );
}

void ChangeLines::onTime() {
   if ( clock()->now() >= rescanTime_ ) followNew();
   const std::string time = utcOf( clock()->now() );
   std::string text;
   bool more = false;
   for ( const auto& feed : feeds_ ) {
      for ( const Change& change : feed->take( filter_, clock()->now() ) )
         text += line_( feed->mirror(), change, time ) + '\n';
      // Changes wait for a second after a writer's return and must be taken then.
      // While it is gone no check is needed: its return is notified.
      more = more || ( feed->waiting() && feed->mirror().writerAlive() );
   }
   forgetGone();
   wakeupTimeIs( more ? clock()->now() + interval : rescanTime_ );
   if ( !text.empty() ) write_( text );
}

void ChangeLines::followNew() {
   rescanTime_ = clock()->now() + rescanning;
   mirrors_.rescan();
   for ( const auto& mirror : mirrors_.all() ) {
      const bool followed = std::any_of(
         feeds_.begin(), feeds_.end(),
         [&]( const auto& feed ) { return &feed->mirror() == mirror.get(); } );
      if ( followed || mirror->problem().kind != Mirror::Problem::none ) continue;
      if ( mirror->loaded() ) {
         follow( *mirror, true );
      } else {
         rescanTime_ = clock()->now() + interval;
      }
   }
}

void ChangeLines::forgetGone() {
   for ( auto& feed : feeds_ ) {
      if ( !feed->gone() ) continue;
      const Mirror& mirror = feed->mirror();
      feed.reset();
      mirrors_.drop( mirror );
   }
   std::erase( feeds_, nullptr );
}

}
