#include "platform/shm/detail/Remount.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>

namespace Brane::Detail {

namespace {

class Remount {
 public:
   Remount( const WriterView& view, const Survey& survey, AttachReport& report )
      : view_( view ), survey_( survey ), report_( report ) {
      uint64_t next = *view.head() + 1;
      uint64_t entry = *view.journal( next );
      intended_ = survey.headSound() && entryIsOf( entry, next );
      if ( intended_ ) intent_ = positionOfEntry( entry );
   }

   void run() {
      if ( !intended_ && nothingToDo() ) return;
      const bool jump = !survey_.headSound() || strayed();
      const uint64_t head = newHead();
      // Overwrites the head's own entry: until the head moves it reads as damaged.
      if ( jump ) storeWord( view_.journal( head ), journalEntry( 0, head ) );
      setCounts( []( uint64_t want, uint64_t now ) { return want > now; } );
      setWords( []( uint64_t want ) { return want != 0; } );
      for ( uint32_t slot : survey_.older() ) setState( slot, slotReplaced );
      setWords( []( uint64_t want ) { return want == 0; } );
      for ( uint32_t slot : survey_.broken() ) setState( slot, slotFree );
      setCounts( []( uint64_t want, uint64_t now ) { return want < now; } );
      if ( jump ) {
         clearBeyond( head );
         storeWord( view_.head(), head );
      } else if ( intended_ ) {
         storeWord( view_.head(), *view_.head() + 1 );
      }
      report_.resequenced = jump;
   }

 private:
   // No follower may have heard of the new head, nor of one so close before it that
   // its journal could show the way there. A damaged head tells nothing of what
   // stood there: all records may be older, and an earlier repair may have moved it
   // the same way.
   uint64_t newHead() const {
      const uint64_t head = *view_.head();
      if ( survey_.headSound() ) return head + headJump;
      uint16_t random = 0;
      while ( getrandom( &random, sizeof random, 0 ) != sizeof random ) continue;
      const uint64_t base = head < maxSequence / 2 ? head : 0;
      // Times one more than a multiple of four: the short form changes like headJump's.
      return std::max( base, survey_.highestSequence() ) +
             headJump * ( 4 * uint64_t( random ) + 1 );
   }

   // Clears entries written there at another time: they are neither an intent nor a
   // sign of damage. The short form of their sequence may come again.
   void clearBeyond( uint64_t head ) {
      for ( uint64_t next = 1; next < view_.geometry.journalEntries; ++next ) {
         // Zero, as in a new table, fits no sequence but those of the first place.
         bool first = view_.journal( head + next ) == view_.journal( 0 );
         uint64_t none = first ? journalEntry( 0, head ) : 0;
         storeWord( view_.journal( head + next ), none );
      }
   }

   bool nothingToDo() const {
      const std::vector<uint64_t>& index = survey_.index();
      return survey_.headSound() && survey_.older().empty() &&
             survey_.broken().empty() &&
             std::memcmp( index.data(), view_.index(), index.size() * 8 ) == 0;
   }

   // Is any word wrong, other than those of the change in progress?
   bool strayed() const {
      for ( Position p = 0; p < view_.geometry.positions(); ++p ) {
         bool right = view_.index()[p] == survey_.index()[p];
         if ( isWord( p ) && !right && !expected( p ) ) return true;
      }
      return false;
   }
   bool expected( Position position ) const {
      return intended_ && position == intent_;
   }

   template <class Condition>
   void setWords( Condition condition ) {
      for ( Position p = 0; p < view_.geometry.positions(); ++p ) {
         uint64_t want = survey_.index()[p];
         uint64_t* word = view_.index() + p;
         if ( !isWord( p ) || *word == want || !condition( want ) ) continue;
         storeWord( word, want );
         ++( expected( p ) ? report_.completed : report_.repaired );
      }
   }

   // Counts left wrong by a kill are no damage, and are not reported.
   template <class Condition>
   void setCounts( Condition condition ) {
      for ( uint32_t line = 0; line < view_.geometry.lineCount; ++line ) {
         uint64_t want = survey_.index()[line * lineWords + 7];
         uint64_t* count = view_.passed( line );
         if ( !condition( want, *count ) ) continue;
         storeWord( count, want );
         ++report_.repaired;
      }
   }

   void setState( uint32_t slot, SlotState state ) {
      uint64_t* stamp = &view_.slot( slot )->stamp;
      storeWord( stamp, stampOf( sequenceOf( *stamp ), state ) );
   }

   const WriterView& view_;
   const Survey& survey_;
   AttachReport& report_;
   bool intended_ = false;
   Position intent_ = noPosition;
};

}

void putRight( const WriterView& view, const Survey& survey,
               AttachReport& report ) {
   Remount( view, survey, report ).run();
}

}
