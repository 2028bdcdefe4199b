// The forwarding of one VRF and family: the mirror of the agent's tables, the
// kernel's table, and the tables published about it.
//
// Start-up: the interfaces are given to the kernel; the mirror loads; then the
// kernel's entries are compared with it, and only differences are written. Without
// tables or agent the kernel keeps its entries. Event-loop thread only.
#pragma once

#include <memory>

#include "apps/mfib/Mfib.h"
#include "apps/mfib/NewSources.h"
#include "apps/mfib/RegisterSocket.h"
#include "apps/mfib/TooBig.h"
#include "apps/mfib/Upcalls.h"
#include "assembly/VrfMirror.h"
#include "engine/AccessFilter.h"
#include "engine/GroupPolicy.h"
#include "engine/Topology.h"
#include "packet/Pim.h"
#include "platform/loop/Loop.h"
#include "published/EventLog.h"
#include "published/Status.h"

namespace Forwarding {

struct FamilyConfig {
   L3::VrfName vrf;
   Vantu::AddressFamily family = Vantu::AddressFamily::ipv4;
   uint32_t table = 0;  // the kernel's number
   uint32_t maxRoutes = 0;
   std::vector<Vantu::IntfId> interfaces;
   // The VRF's RPs and filters, and the addresses by which it registers.
   Router::VrfConfig router = {};
   // Entries for sources without a route: all, and new ones a second and link.
   uint32_t newSourceLimit = 10000;
   uint32_t newSourceRate = 1000;
};

// "vrf default ipv4"
std::string nameOf( const FamilyConfig& config );
// The owner of counters of that kind: "mfib/upcalls/ipv4/default".
std::string counterOwner( const FamilyConfig& config, const char* kind );

// A family's sockets of registers; null: there is none.
struct RegisterWays {
   std::unique_ptr<RegisterSocket> registers;
   std::unique_ptr<TooBig> tooBig;  // IPv6
};

class Family {
 public:
   static constexpr unsigned maxUpcallsATurn = 256;

   // Prints a line for people.
   using Say = std::function<void( const std::string& )>;

   // `kernel` owns the table; the other arguments outlive the family. Throws the
   // exceptions of mounting (Brane::SecondWriterError, Brane::CreateError).
   Family( FamilyConfig config, std::unique_ptr<KernelTable> kernel,
           RegisterWays ways, const LinkTable& links,
           Corvex::EntityManager& manager, Mox::Clock& clock, const Say& say );

   const FamilyConfig& config() const { return config_; }
   const Mfib& mfib() const { return *mfib_; }

   // Tells what the kernel is given and says; null: nobody. Outlives the family.
   void logIs( Published::EventLog* log );

   // Tells readers how often publishCounters() is called, s; 0: never.
   void counterIntervalIs( double seconds );
   // Replaces the configuration of the same VRF, family and table.
   void configIs( FamilyConfig config );
   // Call it when the host's interfaces have changed.
   void handleLinks();
   // Call it when the kernel's socket is readable.
   void takeUpcalls();
   // The socket of registers; -1 without one. Call takeRegisters() when it is readable.
   int registerFile() const { return registers_ ? registers_->file() : -1; }
   void takeRegisters();
   // Publishes the kernel's counters. Throws std::system_error.
   void publishCounters();
   // Call it at the end of each turn of the loop. Throws std::system_error.
   void handleTurnEnd();

 private:
   void start();
   void settingIs( const char* name, const std::string& value );
   void tell( Published::Event event ) const;
   void takeConfig();
   void takePacket( Upcall& upcall );
   void serveFirst( const Upcall& upcall, Vantu::IntfId name );
   bool onDrsLink( const Routing::Pim::RouteKey& key, Vantu::IntfId name ) const;
   void encapsulate( const Routing::Pim::RouteKey& key, Router::Bytes packet );
   void releaseKept();
   bool withinRate();
   bool permits( Vantu::IntfId name, const Routing::Pim::RouteKey& key ) const;
   void hearRegisters();
   void takeRegister( const Router::IpPacket& packet );
   void passOn( const Router::IpPacket& packet, const Router::PimRegister& data );
   void endSilent();
   bool agentSends() const;
   void tellProblem();

   FamilyConfig config_;
   Router::Topology topology_;
   Router::GroupPolicy policy_;
   Router::AccessFilters filters_;
   NewSources newSources_;
   std::unique_ptr<KernelTable> kernel_;
   std::unique_ptr<RegisterSocket> registers_;
   std::unique_ptr<TooBig> tooBig_;
   const LinkTable& links_;
   Mox::Clock& clock_;
   Say say_;
   Mox::Ptr<Published::MfibStatus> published_;
   Vifs vifs_;
   bool unsure_;
   Upcalls upcalls_;
   Routing::Pim::SparseMode::VrfMirror mirror_;
   Mox::Ptr<Published::FamilyStatus> agent_;
   Mox::EventCounter registered_, unregistered_, passedOn_, limited_, tooBigs_;
   double rateSince_ = 0.0;  // s
   uint32_t rateCount_ = 0;  // registers since then
   std::unique_ptr<Mfib> mfib_;
   Published::EventLog* log_ = nullptr;
   std::string problem_;
   bool told_ = false;  // it was reported that all is written
};

}
