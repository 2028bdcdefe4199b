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
   AttachStatus judge( const Former& former, const Survey& survey );
   HeaderValues freshValues() const;
   void copySurvivors( const Former& former, const Survey& survey );
   void drop( const Mox::Error& why );
   void useFile( const Descriptor& file, Mapping mapping,
                 const FileHeader& header );

   WriterTable& table_;
   uint32_t capacity_;
   WriterOptions options_;
};

}
