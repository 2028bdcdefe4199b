// The kernel's real table, by an MRT socket (IPv4) or an MRT6 socket (IPv6).
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
// std::runtime_error with the remedy in the text.
SharedFd openMrtSocket( Vantu::AddressFamily family, uint32_t table );

// Is it a raw socket of the family and protocol? Sockets handed over by other processes
// are checked.
bool isRawSocket( Vantu::AddressFamily family, int protocol, int fd );
bool isMrtSocket( Vantu::AddressFamily family, int fd );

class MrtTable : public KernelTable {
 public:
   // Uses a socket that owns the table. Call makeReady() after the capabilities
   // have been dropped.
   MrtTable( SharedFd socket, Vantu::AddressFamily family, uint32_t table )
      : socket_( std::move( socket ) ), family_( family ), table_( table ) {}

   // Makes the settings of every start. Without capabilities the kernel refuses
   // them to a socket that does not own the table: throws std::runtime_error then.
   void makeReady();

   const SharedFd& socket() const { return socket_; }

   int vifIs( unsigned vif, uint32_t ifIndex ) override;
   int vifDel( unsigned vif ) override;
   int registerVifIs() override;
   uint32_t registerIndex() const override;
   std::optional<VifCounters> vif( unsigned vif ) const override;
   int entryIs( const Entry& entry ) override;
   int entryDel( const Routing::Pim::RouteKey& key ) override;
   std::optional<StandingEntry> counters(
      const Routing::Pim::RouteKey& key ) const override;
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
