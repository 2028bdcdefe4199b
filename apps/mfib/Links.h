// The host's interfaces by name, followed as they come, go and are renamed.
// Event-loop thread only.
#pragma once

#include <functional>
#include <map>

#include "apps/netlink/Notifications.h"
#include "platform/net/IntfId.h"

namespace Forwarding {

// The known interfaces; a plain class, so that tests can fill it.
class LinkTable {
 public:
   // 0 without an interface of that name.
   uint32_t index( Vantu::IntfId name ) const;

   // Can packets come in by it?
   bool up( uint32_t index ) const;

   void linkIs( uint32_t index, Vantu::IntfId name, bool up = true ) {
      links_[index] = { name, up };
   }
   void linkDel( uint32_t index ) { links_.erase( index ); }
   // Takes up what the kernel says of a link; ignores all else.
   void take( const Netlink::Message& message );

 private:
   struct Link {
      Vantu::IntfId name;
      bool up;
   };
   std::map<uint32_t, Link> links_;
};

class Links {
 public:
   // `changed` is called after each change. Throws std::system_error.
   Links( Mox::Loop& loop, Mox::Loop::Function changed );

   const LinkTable& table() const { return table_; }

 private:
   void reload();
   void recover();

   LinkTable table_;
   Mox::Loop::Function changed_;
   Netlink::Notifications notifications_;
};

}
