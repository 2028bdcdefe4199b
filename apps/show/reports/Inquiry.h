// One question of a receiver to one mirror, step by step from the receiver to the
// source. Each step adds to the chain; the first trouble is the verdict.
#pragma once

#include "apps/show/reports/Facts.h"

namespace Show {

class Inquiry {
 public:
   // `ofGroup` are the mirror's routes of the group. The references outlive it.
   Inquiry( const Facts& facts, const Receiver& receiver, Vantu::IntfId intfId,
            std::vector<const Route*> ofGroup )
      : facts_( facts ),
        mirror_( facts.mirror() ),
        receiver_( receiver ),
        intfId_( intfId ),
        ofGroup_( std::move( ofGroup ) ),
        evidence_( facts.evidence() ) {}

   // All steps.
   Why answer();
   // Only what must hold whether or not a source sends: the way to it, and the kernel.
   // Empty where nobody on the interface asks for the group.
   Why contradictions();

 private:
   bool serves() const;
   std::string what() const;
   void step( Why::Mark mark, const char* what, const std::string& evidence );
   void trouble( const std::string& cause, const std::string& verdict );
   // A step that fails, and what follows from it.
   void fail( const char* what, const std::string& evidence,
              const std::string& cause, const std::string& remedy );

   bool concerns( const Published::Event& event ) const;
   std::string ago( const Logged& logged ) const;

   // The receiver's side. False: nothing more can be asked.
   void agent();
   bool interface();
   void linked();
   // Why packets cannot pass by the interface; empty: they can, or it is not known.
   std::string faultOf( Vantu::IntfId intfId,
                        const Published::Interface& published ) const;
   struct Absence {
      std::string cause, says, remedy;
   };
   Absence absence() const;
   // The interface's record in the source's route; null: none.
   const Intf* record( const Vantu::IpGenAddr& source ) const;
   bool asked( const Route& route ) const;
   std::vector<const Intf*> wishes();
   bool wanted();
   std::string memberText() const;
   std::string joinText( const std::vector<const Intf*>& records ) const;
   void notWanted();
   void refused( const Logged& told );
   void ended( const Logged& told );
   void designated();

   // The source's side.
   const Route* find( const Vantu::IpGenAddr& source ) const;
   void chooseRoute();
   const Route* onlySource() const;
   bool shared() const { return route_->wildCard() || route_->comesBySharedTree(); }
   void path();
   void neighborOn( const Rpf& rpf, const std::string& end,
                    const std::string& way );
   void registers();
   void upstream();
   void forwards();
   void kernel();
   void kernelEntry();
   void noEntry( const Routing::Pim::RouteKey& key );
   void compare( const KernelEntries& kernel, const Host::Entry& entry );

   // The newest packets of the source, or of any source of the group.
   struct Flow {
      uint64_t packets = 0;
      double last = 0.0;
      std::optional<double> rate = std::nullopt;  // packets a second
   };
   Flow flow() const;
   std::string rateText( const Flow& flow ) const;
   bool arrives() const;
   // Do counters say what happened between two looks?
   bool countedOften() const;
   // Where packets come in that should not; empty: nowhere.
   Vantu::IntfId wrongSide() const;
   void packets();
   void silence( const Flow& is );

   const Facts& facts_;
   const Mirror& mirror_;
   const Receiver& receiver_;
   Vantu::IntfId intfId_;
   std::vector<const Route*> ofGroup_;
   const Evidence& evidence_;
   Published::Interface published_;
   bool member_ = false;
   bool joined_ = false;
   const Route* route_ = nullptr;
   double lastJoins_ = 0.0;
   std::optional<uint64_t> sentOut_;  // by the interface
   Why why_;
};

}
