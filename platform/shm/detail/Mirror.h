// The follower's work: compares the remembered table with the present one.
//
// Comparing index words finds changes: a word differs after every write of its key
// until generations repeat, and a follower that far behind takes every word for
// changed. The journal only says where to look.
#pragma once

#include <memory>
#include <set>
#include <vector>

#include "platform/shm/TableFollower.h"
#include "platform/shm/detail/ReaderTable.h"
#include "platform/shm/detail/Remembered.h"

namespace Brane::Detail {

class Mirror {
 public:
   explicit Mirror( ReaderTable& table );

   TableFollower::Drained drain( const TableFollower::Callback& callback,
                                 uint32_t limit );
   void met( Position position, const std::byte* key );
   bool stands( const Found& found ) const;
   bool pending() const;
   uint32_t size() const { return known_.size(); }
   ReaderTable& table() const { return table_; }
   // What met() will look at; the second after the first has come.
   void fetch( Position position ) const {
      if ( position < known_.positions() ) known_.fetch( position );
   }
   void fetchKey( Position position ) const {
      if ( position < known_.positions() ) known_.fetchKey( position );
   }

 private:
   // One drain: its receiver, and its results.
   struct Teller {
      const TableFollower::Callback& callback;
      uint32_t limit;
      TableFollower::Drained drained;

      uint32_t told() const { return drained.written + drained.removed; }
      bool full() const { return told() >= limit; }

      void written( const std::byte* record, const Found& found );
      void removed( const std::byte* key, Position position );
   };

   void load();
   void moveTo( std::shared_ptr<const Instance> instance, Teller& teller );
   void tellDifference( const Instance& former, const Remembered& known,
                        Teller& teller );
   void tellKept( const Instance& former, uint64_t word, Position formerAt,
                  Position at, Teller& teller );
   void forgetAll( Teller& teller );
   void follow( Teller& teller );
   bool collect( uint64_t head );
   void followJournal( uint64_t head, Teller& teller );
   void startScan( uint64_t head );
   void scan( Teller& teller );
   void fetchAhead( const std::vector<Position>& positions, size_t i, size_t& words,
                    size_t& slots ) const;
   void endScan();
   bool scanning() const { return scanning_; }
   void compareIntent( uint64_t head, Teller& teller );
   void compare( Position position, uint64_t word, Teller& teller );
   void vanished( Position position, Teller& teller );
   void settleMet( Teller& teller );
   void replaced( Position position, uint64_t word, Teller& teller );
   bool knownElsewhere( const std::byte* key ) const;

   ReaderTable& table_;
   std::shared_ptr<const Instance> instance_;
   Remembered known_;
   uint64_t seen_ = 0;  // changes up to this sequence were told
   // A scan: the positions that had changed when it began, those told already, and the
   // sequence then.
   bool scanning_ = false;
   std::vector<Position> scan_;
   size_t scanned_ = 0;
   uint64_t scanHead_ = 0;
   std::vector<Position> candidates_;
   std::vector<Position> again_;  // positions busy at the last look
   // Keys that the owner found before they were told.
   std::set<std::vector<std::byte>> met_;
   std::vector<std::byte> record_;
   std::vector<std::byte> other_;  // a second record
};

}
