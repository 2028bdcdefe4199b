// Opens a writer's table: takes over what stands there, or makes a new instance.
#pragma once

#include "platform/shm/detail/Header.h"
#include "platform/shm/detail/Survey.h"
#include "platform/shm/detail/WriterTable.h"

namespace Brane::Detail {

class TableMaker {
 public:
   // Opens `table`, whose lock is taken. Throws CreateError, Mox::RangeError.
   static void open( WriterTable& table, uint32_t capacity,
                     const WriterOptions& options );
   // Replaces the table's instance by one of twice the capacity with the same
   // records, under the same sequences. Throws CreateError; the table is unchanged
   // then.
   static void grow( WriterTable& table );
   // Maps the table's file; false where its name does not lead to it any more. Throws
   // CreateError.
   static bool map( WriterTable& table );
   // Makes the file of an empty table anew. Throws CreateError.
   static void renew( WriterTable& table );

 private:
   // A file that stood at the path, with a usable header.
   struct Former {
      FileHeader header;
      Descriptor file;
      Mapping mapping;
      ConstView view;
   };

   // A new instance.
   struct Made {
      FileId file;
      std::shared_ptr<Mapping> mapping;
      WriterView view;
      uint64_t instanceId = 0;
   };

   TableMaker( WriterTable& table, uint32_t capacity,
               const WriterOptions& options );

   void run();
   bool readFormer( Former& former );
   void takeOver( Former former, const Survey& survey );
   void create( const Former* former, const Survey* survey );
   static Made make( const WriterTable& table, const HeaderValues& values,
                     uint64_t sequence );
   static void name( const WriterTable& table, const WriterView& view );
   static uint32_t copyRecords( const ConstView& from, const WriterView& to );
   static Place freePlace( const ConstView& view, uint64_t hash );
   static void adopt( WriterTable& table, Made made, uint32_t records );
   AttachStatus judge( const Former& former, const Survey& survey );
   HeaderValues freshValues( uint32_t records ) const;
   static void fillFree( WriterTable& table, uint32_t records );
   static HeaderValues valuesOf( const WriterTable& table );
   void copySurvivors( const Former& former, const Survey& survey );
   void drop( const Mox::Error& why );

   WriterTable& table_;
   uint32_t limit_;
   WriterOptions options_;
};

}
