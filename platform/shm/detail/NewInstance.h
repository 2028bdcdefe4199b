// An instance of a table in the making: a file beside the table's, which takes its
// name when it is complete. After a kill before that, the former one stands untouched.
#pragma once

#include <memory>

#include "platform/shm/detail/Header.h"
#include "platform/shm/detail/Mapping.h"
#include "platform/shm/detail/Order.h"

namespace Brane::Detail {

class NewInstance {
 public:
   // Makes the file, without space; what stood at the path goes. The layout outlives
   // this. Throws CreateError.
   NewInstance( const Mox::String& path, const Layout& layout,
                const HeaderValues& values );
   // Removes the file, unless it was named.
   ~NewInstance();
   NewInstance( const NewInstance& ) = delete;
   NewInstance& operator=( const NewInstance& ) = delete;

   // Allocates as many bytes more, or what is left; true once all are there. Throws
   // CreateError. Nothing may be stored before, a page missing is a SIGBUS.
   bool allocate( uint64_t bytes = ~uint64_t( 0 ) );
   // Writes the header, and a journal that begins after a change of that sequence.
   void startAfter( uint64_t sequence );
   // Gives the file its name. Throws CreateError.
   void nameIs( const Mox::String& path );

   uint64_t instanceId() const { return values_.instanceId; }
   const FileId& file() const { return file_; }
   const WriterView& view() const { return view_; }
   const std::shared_ptr<Mapping>& mapping() const { return mapping_; }

 private:
   Mox::String path_;
   const Layout& layout_;
   HeaderValues values_;
   bool named_ = false;
   Descriptor descriptor_;
   FileId file_;
   std::shared_ptr<Mapping> mapping_;
   WriterView view_;
   uint64_t allocated_ = 0;
};

}
