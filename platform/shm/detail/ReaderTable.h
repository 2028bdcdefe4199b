// A reader's side of a table: its attached instance and its counters.
#pragma once

#include <memory>
#include <span>
#include <unordered_map>

#include "platform/shm/TableFiles.h"
#include "platform/shm/TableReader.h"
#include "platform/shm/detail/Instance.h"

namespace Brane::Detail {

class ReaderTable {
 public:
   ReaderTable( TableFiles files, std::shared_ptr<const Layout> layout );

   bool poll();
   Lookup lookup( const void* key, void* out, Position* position );
   void lookup( std::span<TableReader::LookupItem> items );
   Lookup at( Position position, void* out );
   Position visit( const TableReader::Visitor& visitor, Position after );
   Position resumeBefore( const void* key );
   Lookup verify( const void* key );

   ReaderState state() const { return state_; }
   const Mox::String& problem() const { return problem_; }
   LayoutError::Mismatch mismatch() const { return mismatch_; }
   // Null unless attached.
   const std::shared_ptr<const Instance>& instance() const { return instance_; }
   // The same, of the table as it has grown.
   const std::shared_ptr<const Instance>& followed() {
      if ( outgrown() ) followGrowth();
      return instance_;
   }
   const TableFiles& files() const { return files_; }
   const Layout& layout() const { return *layout_; }
   const TableReader::Counters& counters() const { return counters_; }

   void verifyingIs( bool verifying ) { verifying_ = verifying; }

   // Judges and counts a copy, and returns the result.
   Lookup count( const Instance& instance, const Instance::Copy& copy,
                 Position position, const void* record ) {
      counters_.retried += copy.retries;
      if ( verifying_ && copy.result == lookupFound &&
           !instance.verify( position, copy, record ) )
         return damaged( copy, position, kUnverified );
      counters_.verified += copy.result == lookupFound;
      if ( copy.result > lookupAbsent ) countFailed( copy, position );
      return copy.result;
   }

 private:
   static constexpr const char* kUnverified =
      "the record's checksum or place is wrong";

   void countFailed( const Instance::Copy& copy, Position position );
   Lookup damaged( const Instance::Copy& copy, Position position,
                   const char* what );
   bool outgrown() const {
      return instance_ && loadWord( instance_->view().retired() ) != 0;
   }
   void followGrowth();
   bool judgedStands() const;
   bool look();
   bool handleMissing();
   void attach( Descriptor file );
   void adopt( Descriptor& file );
   bool isPosition( Position position ) const;
   Lookup withoutInstance() const;

   TableFiles files_;
   std::shared_ptr<const Layout> layout_;
   ReaderState state_ = readerAbsent;
   LayoutError::Mismatch mismatch_ = LayoutError::magic;
   Mox::String problem_;
   // Of the judged file. No other file gets its number: its mapping keeps it, or, where
   // it cannot be read, an open descriptor.
   bool judged_ = false;
   Descriptor unreadable_;
   FileId fileId_;
   bool orphaned_ = false;  // the name leads nowhere, and the table was not retired
   std::shared_ptr<const Instance> instance_;
   // The last readable instance, while its successor cannot be read.
   std::shared_ptr<const Instance> former_;
   TableReader::Counters counters_;
   bool verifying_ = false;
   bool changed_ = false;  // since the last poll
   // The index words counted as damaged: the same damage is read again and again.
   std::unordered_map<Position, uint64_t> damaged_;
   std::vector<std::byte> buffer_;
};

}
