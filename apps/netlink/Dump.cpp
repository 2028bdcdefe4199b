#include "apps/netlink/Dump.h"

#include <cerrno>
#include <system_error>

#include "apps/netlink/Socket.h"

namespace Netlink {
namespace {

constexpr uint32_t kSequence = 1;
constexpr timeval kPatience = { 5, 0 };  // how long the kernel may be silent

[[noreturn]] void fail( int error, const char* what ) {
   throw std::system_error( error, std::generic_category(), what );
}

// `table` null: all tables.
void request( const mnl_socket* socket, uint16_t type, int family,
              const uint32_t* table ) {
   alignas( nlmsghdr ) char buffer[128] = {};
   nlmsghdr* message = mnl_nlmsg_put_header( buffer );
   message->nlmsg_type = type;
   message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   message->nlmsg_seq = kSequence;
   // As long as any other body that begins with a family.
   auto* body =
      static_cast<rtmsg*>( mnl_nlmsg_put_extra_header( message, sizeof( rtmsg ) ) );
   body->rtm_family = static_cast<uint8_t>( family );
   if ( table != nullptr ) {
      int on = 1;
      mnl_socket_setsockopt( socket, NETLINK_GET_STRICT_CHK, &on, sizeof on );
      mnl_attr_put_u32( message, RTA_TABLE, *table );
   }
   if ( mnl_socket_sendto( socket, message, message->nlmsg_len ) < 0 )
      fail( errno, "netlink request" );
}

int errorIn( const nlmsghdr* message ) {
   if ( message->nlmsg_len < NLMSG_LENGTH( sizeof( int ) ) ) return EBADMSG;
   int error = 0;
   std::memcpy( &error, mnl_nlmsg_get_payload( message ), sizeof error );
   return -error;
}

bool answer( uint16_t type, int family, const uint32_t* table,
             const Handler& handler ) {
   Socket socket = openSocket();
   int file = mnl_socket_get_fd( socket.get() );
   setsockopt( file, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience );
   request( socket.get(), type, family, table );
   // As large as the kernel's parts of a dump.
   alignas( nlmsghdr ) char buffer[32768];
   bool whole = true;
   while ( true ) {
      ssize_t count = mnl_socket_recvfrom( socket.get(), buffer, sizeof buffer );
      if ( count < 0 && errno == EINTR ) continue;
      if ( count < 0 ) fail( errno, "netlink answer" );
      int left = static_cast<int>( count );
      const auto* message = reinterpret_cast<const nlmsghdr*>( buffer );
      for ( ; mnl_nlmsg_ok( message, left );
            message = mnl_nlmsg_next( message, &left ) ) {
         if ( message->nlmsg_seq != kSequence ) continue;
         if ( ( message->nlmsg_flags & NLM_F_DUMP_INTR ) != 0 ) whole = false;
         bool done = message->nlmsg_type == NLMSG_DONE;
         if ( done || message->nlmsg_type == NLMSG_ERROR ) {
            // A dump that fails half-way ends like any other, except for the error
            // number.
            int error = errorIn( message );
            if ( error != 0 || !done ) fail( error, "netlink dump" );
            return whole;
         }
         handler( Message( *message ) );
      }
   }
}

}

bool dump( uint16_t type, int family, const Handler& handler ) {
   return answer( type, family, nullptr, handler );
}

bool dumpRoutes( int family, uint32_t table, const Handler& handler ) {
   return answer( RTM_GETROUTE, family, &table, handler );
}

}
