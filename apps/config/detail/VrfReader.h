// The parts of the configuration, a VRF with all that it holds.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

#include "apps/config/detail/Section.h"

namespace Agent {

// Reads one VRF; holds the names that must be unique in all VRFs.
class VrfReader {
 public:
   VrfConfig read( const Place& place );

 private:
   void readTime( Section& section, const char* key, uint32_t least, uint32_t most,
                  uint16_t& out );
   static void readSptThreshold( Section& section, VrfConfig& out );
   static double readRate( const Place& place, const char* key );
   void readHello( Section& section, const VrfConfig& vrf, InterfaceConfig& out );
   Router::MembershipConfig readMembership( const Place& place, const char* what,
                                            uint32_t oldest, uint32_t newest,
                                            double longest, const VrfConfig& vrf );
   InterfaceConfig readInterface( const Place& place, VrfConfig& vrf );
   RpfRouteConfig readRpfRoute( const Place& place, const VrfConfig& vrf );
   RpConfig readRp( const Place& place );
   Router::AnycastRpConfig readAnycastRp( const Place& place,
                                          const VrfConfig& vrf );
   AdvertisedConfig readAdvertised( const Place& place );
   AccessListConfig readAccessList( const Place& place );
   void readName( Section& section, VrfConfig& out );
   void readMrouteTable( Section& section, VrfConfig& out );
   static void readFilter( Section& section, const std::string& key,
                           Vantu::AddressFamily family, const VrfConfig& vrf,
                           std::string& out );
   static const AccessListConfig& listOf( const Place& place,
                                          const std::string& key,
                                          const VrfConfig& vrf );
   static void readFilters( Section& section, const std::string& key,
                            const VrfConfig& vrf, Router::FamilyLists& out );
   static void readSeconds( Section& section, const char* key, double least,
                            double most, double& out );
   void readRegister( Section& section, VrfConfig& out );
   void readPolicy( Section& section, const VrfConfig& vrf, InterfaceConfig& out );
   static Router::StaticGroupConfig readStaticGroup( const Place& place,
                                                     Vantu::AddressFamily family );
   static void readLimit( Section& section, const char* key, uint32_t& out );
   static void readRpf( Section& section, VrfConfig& out );

   std::set<L3::VrfName> vrfs_;
   std::map<uint32_t, L3::VrfName> mrouteTables_;
   std::set<Vantu::IntfId> interfaces_;
   std::set<std::string> captures_;
   // The addresses of the VRF being read.
   std::set<Vantu::IpGenAddr> addresses_;
   std::set<Vantu::IpGenPrefix> rpfPrefixes_;
   std::set<Vantu::IpGenAddr> rps_, anycastRps_;
   std::set<std::pair<Vantu::IpGenAddr, Vantu::IpGenAddr>> advertised_;
   std::set<std::string> accessLists_;
};

// The whole configuration. Throws NodeError.
AgentConfig readRoot( const Place& place );

}
