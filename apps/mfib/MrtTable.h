// The real table of the kernel, by an MRT socket (IPv4) or an MRT6 socket (IPv6).
//
// A socket that has initialised a table owns it: it may change it without any
// capability, and when its last copy is closed the kernel flushes the table.
#pragma once

#include <memory>

#include "apps/mfib/KernelTable.h"
#include "platform/loop/Loop.h"

namespace Forwarding {

using SharedFd = std::shared_ptr<const Mox::Loop::Fd>;

// A socket that owns the table. Needs CAP_NET_RAW and CAP_NET_ADMIN. Throws
// std::runtime_error with a text that says what to do.
SharedFd openMrtSocket( Vantu::AddressFamily family, uint32_t table );

// Is it a socket of the family's kind? What is handed over by others is not believed.
bool isMrtSocket( Vantu::AddressFamily family, int fd );

class MrtTable : public KernelTable {
 public:
   // Over a socket that owns the table. Call makeReady() when the capabilities are
   // gone.
   MrtTable( SharedFd socket, Vantu::AddressFamily family, uint32_t table )
      : socket_( std::move( socket ) ), family_( family ), table_( table ) {}

   // Settings that every start makes. Without capabilities the kernel refuses them
   // to a socket that does not own the table: throws std::runtime_error then.
   void makeReady();

   const SharedFd& socket() const { return socket_; }

   int vifIs( unsigned vif, uint32_t ifIndex ) override;
   int vifDel( unsigned vif ) override;
   std::optional<VifCounters> vif( unsigned vif ) const override;
   int entryIs( const Entry& entry ) override;
   int entryDel( const Routing::Pim::RouteKey& key ) override;
   bool visit(
      const std::function<void( const StandingEntry& )>& visitor ) const override;
   std::optional<Upcall> nextUpcall() override;

 private:
   bool isIpv4() const { return family_ == Vantu::AddressFamily::ipv4; }

   SharedFd socket_;
   Vantu::AddressFamily family_;
   uint32_t table_;
};

}
