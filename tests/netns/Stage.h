// A bed as the scenarios of this folder speak of it: actions by statements, figures of
// what hosts received and of what went over the links. README.md explains the language.
#pragma once

#include <map>
#include <optional>

#include "tests/netns/Bed.h"
#include "tests/netns/Flow.h"
#include "tests/netns/Overheard.h"
#include "tests/scenario/Words.h"
#include "tests/support/TempRoot.h"

namespace Netns {

class Stage {
 public:
   // Builds the bed of the script and starts its routers; the script outlives it.
   // Throws std::runtime_error.
   explicit Stage( const Scenario::Script& script );

   // Copies the packets to the file that PIMSM_KEEP_PACKETS names, if it does.
   ~Stage();

   // Each story has its own groups, and leaves none behind. One that explains asks why of
   // each receiver that hears, which takes a second each.
   void begin( bool explains );
   void end();
   // Throws Scenario::ScriptError, also for what does not come to pass.
   void act( const std::string& statement );
   // "H1 G lost": the figure of each family, by its name; "wire prunes": one of all.
   std::map<std::string, double> figures( Scenario::Words& words );
   const Bed& bed() const { return bed_; }
   // What is wrong with the packets so far, as tshark has it.
   std::string faulty() const { return decoder_ ? decoder_->faulty() : ""; }

   // Of a process.
   struct Load {
      double memory = 0, time = 0;  // KB, ms
   };

 private:
   using Words = Scenario::Words;
   using Flow = std::pair<std::string, Vantu::IpGenAddr>;
   struct Member {
      std::unique_ptr<Receiver> receiver;
      double since;
   };

   void pause( double seconds );
   bool actOnPackets( const std::string& who, const std::string& verb,
                      Words& words );
   void actOnProgram( const std::string& verb, Words& words );
   void link( Words& words );
   void until( Words& words );
   void tells( const std::string& command, Words& words, int seconds );
   void expectTold( Mox::Test::Program::Arguments asked, const std::string& pattern,
                    int seconds ) const;
   std::string patternOf( const std::vector<std::string>& words,
                          Vantu::AddressFamily family ) const;
   void expectNoVerdict( const std::string& who, const Vantu::IpGenAddr& of );
   void hears( const std::string& who, const std::string& group );
   void hears( const std::string& who, const Vantu::IpGenAddr& of );
   void forwards( const std::string& who, size_t entries );
   std::map<std::string, double> loads( const std::string& whose,
                                        const std::string& what );
   void killAtRandom( int times );
   double figure( const std::string& host, const Vantu::IpGenAddr& group,
                  const std::string& what );
   Vantu::IpGenAddr group( const std::string& name,
                           Vantu::AddressFamily family ) const;
   std::string text( const std::string& word, Vantu::AddressFamily family ) const;
   // The only sender for the group.
   Sender& senderOf( const Vantu::IpGenAddr& group );

   const Scenario::Script& script_;
   Mox::Test::TempRoot root_;
   const std::string store_;
   Bed bed_;
   std::optional<Decoder> decoder_;
   int stories_ = 0;
   bool explains_ = false;
   double acted_ = 0;  // when the last line began
   double listening_ = 0;
   double ended_ = 0;  // s, when the last story did
   double counted_ = 0;
   std::map<std::string, std::pair<Load, Load>> loads_;  // at that time
   std::map<Flow, Member> receivers_;
   std::map<Flow, std::unique_ptr<Sender>> senders_;
};

}
