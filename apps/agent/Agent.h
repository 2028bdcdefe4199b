// The reference agent: hosts the library on its event loop and feeds it packets.
//
// Start-up in order: configuration, tables of every VRF and family mounted as
// writer with their reconcilers; when each has reloaded, its engines resume the
// reloaded states; then the captures are replayed in slices; after their end the
// agent runs in real time. Interfaces that it listens on are heard from the start, and a
// router's hellos leave them.
// Doorbells ring at the end of each turn of the loop.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "apps/agent/FamilyInstance.h"
#include "apps/agent/Replay.h"
#include "apps/agent/capture/LiveCapture.h"
#include "apps/config/AgentConfig.h"
#include "apps/netlink/Notifications.h"
#include "platform/loop/RealClock.h"
#include "published/EventLog.h"
#include "published/Publisher.h"

namespace Agent {

struct AgentOptions {
   AgentConfig config;
   // No configuration was given: the tables of other VRFs are not this agent's to
   // remove.
   bool assumed = false;
   std::string root = Corvex::EntityManager::defaultRoot;
   std::vector<Replay::Input> captures;
   // Interfaces of this host to listen on, by the names of their captures.
   // REQUIRES: no captures to replay, whose time differs.
   std::vector<std::string> interfaces;
   // Listens on the configuration's interfaces instead, and follows its changes. A
   // missing interface is waited for.
   bool listen = false;
   // Is a router: also sends, on the interfaces that it listens on. REQUIRES: listen.
   bool speak = false;
   // The number of events that the log keeps; 0: no log.
   uint32_t logEntries = Published::EventLog::defaultEntries;
   // Gets messages for people, for instance that an interface went away.
   std::function<void( const std::string& )> note = []( const std::string& ) {};
};

class Agent {
 public:
   // Mounts the tables, reads the captures and opens the interfaces. `loop` outlives the
   // agent. Throws CaptureError, ConfigError (a capture without an interface),
   // Brane::SecondWriterError, Brane::CreateError.
   Agent( Mox::Loop& loop, AgentOptions options );
   ~Agent();
   Agent( const Agent& ) = delete;
   Agent& operator=( const Agent& ) = delete;

   // Called once, when the captures are played and their results published.
   void readyIs( std::function<void()> ready ) { ready_ = std::move( ready ); }

   // All families' FamilyInstance::mountNotes().
   std::vector<std::string> mountNotes() const;

   // Replaces the configuration: VRFs come and go with their tables, the others
   // follow it. Returns a line for each setting that cannot follow now. Throws
   // ConfigError, the exceptions of mounting a new VRF, and std::system_error where
   // the kernel's routes cannot be read; nothing has changed then.
   std::vector<std::string> configIs( AgentConfig config );

   // This router leaves all its links by intent: its neighbours forget it at once, and
   // its tables go. Destroy the agent next.
   void leave();

   const RouterCounters& counters() const { return counters_; }
   const std::vector<std::unique_ptr<FamilyInstance>>& families() const {
      return families_;
   }
   // The damaged captures and their damage; empty without any.
   const std::string& captureProblem() const { return replay_.problem(); }
   // The numbers of packets replayed and routes reloaded, and the counters; lines
   // for people.
   std::string summary() const;

   // Tells of the agent's end in the event log.
   void tellEnd();

 private:
   using Families = std::vector<std::unique_ptr<FamilyInstance>>;

   VrfConfig present( const VrfConfig& vrf, Vantu::AddressFamily family ) const;
   void followPresence();
   void openLog();
   Journal::Sink events();
   void addFamilies( const AgentConfig& config, Families& made );
   Families newFamilies( const AgentConfig& config );
   void removeLeftovers();
   FamilyInstance* find( const L3::VrfName& vrf,
                         Vantu::AddressFamily family ) const;
   void familiesAre( Families families );
   std::vector<std::string> bindCaptures();
   void handleTurnEnd();
   void adoptReloaded();
   void playSlice();
   // A frame that arrived on the interface of `capture`.
   struct Frame {
      const std::string& capture;
      LinkType link;
      bool truncated;
      Bytes bytes;
   };
   std::vector<std::string> listenedOn() const;
   std::vector<std::string> listenAnew();
   void followLinks();
   std::unique_ptr<LiveCapture> listen( const std::string& interface );
   void receive( const Frame& frame );
   DropReason decode( const Frame& frame );
   void receiveUnicast( const IpPacket& packet );
   bool published() const;

   AgentOptions options_;
   Mox::Loop& loop_;
   Mox::RealClock real_;
   AgentClock clock_;
   RouterCounters counters_;
   Corvex::EntityManager manager_;
   Published::CounterPublisher published_;
   std::optional<Published::EventLog> log_;
   KernelRoutes kernelRoutes_;
   std::optional<Wire> wire_;  // of a router that sends
   Families families_;
   std::map<std::pair<L3::VrfName, Vantu::AddressFamily>, FamilyInstance*> byVrf_;
   Replay replay_;
   std::map<std::string, CaptureBinding> bindings_;  // by capture
   std::optional<Netlink::Notifications> links_;     // none where nothing is heard
   std::map<std::string, std::unique_ptr<LiveCapture>> live_;  // by interface
   bool started_ = false;  // the replay has started
   std::function<void()> ready_;
   const CaptureBinding* heardBy_ = nullptr;  // of the message being handled
   std::optional<Mox::Loop::TurnEnd> turnEnd_;
};

}
