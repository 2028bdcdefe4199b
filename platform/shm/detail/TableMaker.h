// Opens a writer's table: takes over what stands there, or makes a new instance.
#pragma once

#include "platform/shm/detail/Growth.h"
#include "platform/shm/detail/Survey.h"
#include "platform/shm/detail/WriterTable.h"

namespace Brane::Detail {

class TableMaker {
 public:
   // Opens `table`, whose lock is taken. Throws CreateError, Mox::RangeError.
   static void open( WriterTable& table, uint32_t capacity,
                     const WriterOptions& options );
   // Begins to make an instance of twice the capacity. Throws CreateError.
   static std::unique_ptr<Growth> beginGrowth( const WriterTable& table );
   // Replaces the table's instance by the grown one, which has the same records under
   // the same sequences. Throws CreateError; the table is unchanged then.
   static void finishGrowth( WriterTable& table, Growth& growth );
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

   TableMaker( WriterTable& table, uint32_t capacity,
               const WriterOptions& options );

   void run();
   bool readFormer( Former& former );
   void takeOver( Former former, const Survey& survey );
   void create( const Former* former, const Survey* survey );
   static void adopt( WriterTable& table, const NewInstance& made,
                      uint32_t usedSlots = 0 );
   AttachStatus judge( const Former& former, const Survey& survey );
   HeaderValues freshValues( uint32_t records ) const;
   static HeaderValues valuesOf( const WriterTable& table );
   void copySurvivors( const Former& former, const Survey& survey );
   void drop( const Mox::Error& why );

   WriterTable& table_;
   uint32_t limit_;
   WriterOptions options_;
};

}
