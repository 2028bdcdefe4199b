// The tables against memcpy, LMDB, rte_hash and Boost.Interprocess.
//
//    bench_shm [A|B]     both without an argument
//
// Columns: ns per record, the base's ns per record, their ratio, the goal.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>

#include <cmath>
#include <filesystem>

#include "Peers.h"
#include "platform/shm/DoorbellHub.h"
#include "platform/shm/TableFiles.h"
#include "platform/shm/TableFollower.h"
#include "platform/shm/TableReader.h"
#include "platform/shm/TableWriter.h"
#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Geometry.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Header.h"

namespace Brane::Bench {
namespace {

struct Targets {
   double rewrite, rewriteBatch, rewriteHandle, insert, lookup, lookupBatch, burst,
      iterate, remount, mirror, lmdbWrite, lmdbWriteBatch, lmdbLookup,
      lmdbLookupBatch;
};

class TableBench {
 public:
   TableBench( const Size& size, const Targets& targets,
               const std::string& directory )
      : size_( size ),
        targets_( targets ),
        directory_( directory + "/" + size.name ),
        path_( directory_ + "/table" ),
        layout_( layoutOf( size ) ),
        inserted_( size ),
        visited_( size ),
        records_( size.recordSize * batchSize ),
        record_( size.recordSize ),
        shared_( Shared::make() ) {
      std::filesystem::create_directories( directory_ );
      inserted_.shuffle( 1 );
      visited_.shuffle( 2 );
      for ( size_t i = 0; i < records_.size(); ++i )
         records_[i] = std::byte( i * 31 );
      std::memcpy( record_.data(), records_.data(), record_.size() );
   }

   void run() {
      printf( "table %s: %u records of %u bytes, keys of %u; medians of %d\n",
              size_.name, size_.records, size_.recordSize, size_.keySize, rounds );
      printf( "  %-44s %10s %10s %7s %7s\n", "", "ns", "base ns", "ratio",
              "reach" );
      CopyPeer copy( directory_ + "/copy", size_ );
      copy.write( inserted_, record_.data() );
      writes( copy );
      reads( copy );
      remounts();
      peers();
      if ( size_.records < 100000 ) latency();
      churn();
   }

 private:
   using Writer = std::unique_ptr<TableWriter>;

   // With `grows` from a few records; otherwise with room for all.
   Writer open( bool grows = false ) const {
      WriterOptions options;
      if ( !grows ) options.firstCapacity = size_.records;
      return std::make_unique<TableWriter>( path_, layout_, size_.records,
                                            options );
   }

   double insertAll( TableWriter& writer ) {
      return timed( inserted_.count(), [&] {
         for ( size_t i = 0; i < inserted_.count(); ++i ) {
            std::memcpy( record_.data(), inserted_.at( i ), size_.keySize );
            writer.put( record_.data() );
         }
      } );
   }
   double rewriteSingle( TableWriter& writer,
                         const std::vector<Position>* positions = nullptr ) {
      return timed( visited_.count(), [&] {
         for ( size_t i = 0; i < visited_.count(); ++i ) {
            std::memcpy( record_.data(), visited_.at( i ), size_.keySize );
            writer.put( record_.data(),
                        positions ? ( *positions )[i] : noPosition );
         }
      } );
   }
   std::vector<Position> positionsIn( const TableWriter& writer ) const {
      std::vector<Position> positions;
      for ( size_t k = 0; k < visited_.count(); ++k ) {
         positions.push_back( writer.positionAtOrBefore( visited_.at( k ) ) );
      }
      return positions;
   }
   double rewriteBatch( TableWriter& writer, std::vector<Position>* positions ) {
      std::vector<TableWriter::PutItem> items( batchSize );
      for ( size_t i = 0; i < batchSize; ++i ) {
         items[i].record = records_.data() + i * size_.recordSize;
      }
      return timed( visited_.count(), [&] {
         for ( size_t at = 0; at < visited_.count(); at += batchSize ) {
            size_t count = std::min( batchSize, visited_.count() - at );
            for ( size_t i = 0; i < count; ++i ) {
               std::memcpy( records_.data() + i * size_.recordSize,
                            visited_.at( at + i ), size_.keySize );
               items[i].position = positions ? ( *positions )[at + i] : noPosition;
            }
            writer.put( std::span( items ).first( count ) );
         }
      } );
   }

   void writes( const CopyPeer& copy ) {
      std::vector<double> base, insert, growing, single, batch, handle;
      Writer writer;
      for ( int i = 0; i < rounds; ++i ) {
         writer.reset();
         removeTableFiles( path_ );
         writer = open( true );
         growing.push_back( insertAll( *writer ) );
         writer.reset();
         removeTableFiles( path_ );
         writer = open();
         insert.push_back( insertAll( *writer ) );
         base.push_back( copy.write( visited_, record_.data() ) );
         single.push_back( rewriteSingle( *writer ) );
         batch.push_back( rewriteBatch( *writer, nullptr ) );
         std::vector<Position> positions = positionsIn( *writer );
         handle.push_back( rewriteBatch( *writer, &positions ) );
      }
      double memory = median( base );
      row( "rewrite, single / memcpy", median( single ), memory, targets_.rewrite );
      row( "rewrite, batch / memcpy", median( batch ), memory,
           targets_.rewriteBatch );
      row( "rewrite, handle and prefetch / memcpy", median( handle ), memory,
           targets_.rewriteHandle );
      row( "insert, single / memcpy", median( insert ), memory, targets_.insert );
      row( "insert, growing from a few / memcpy", median( growing ), memory, 0 );
   }

   double lookupSingle( const TableReader& reader ) {
      return timed( visited_.count(), [&] {
         for ( size_t i = 0; i < visited_.count(); ++i ) {
            if ( reader.lookup( visited_.at( i ), record_.data() ) ==
                 lookupAbsent ) {
               abort();
            }
            used( record_.data() );
         }
      } );
   }
   double lookupBatch( const TableReader& reader ) {
      std::vector<TableReader::LookupItem> items( batchSize );
      return timed( visited_.count(), [&] {
         for ( size_t at = 0; at < visited_.count(); at += batchSize ) {
            size_t count = std::min( batchSize, visited_.count() - at );
            for ( size_t i = 0; i < count; ++i ) {
               items[i].key = visited_.at( at + i );
               items[i].out = records_.data() + i * size_.recordSize;
            }
            reader.lookup( std::span( items ).first( count ) );
            used( records_.data() );
         }
      } );
   }
   double iterate( const TableReader& reader ) {
      uint32_t met = 0;
      double figure = timed( size_.records, [&] {
         reader.visit( [&]( Position, const void* record ) {
            used( record );
            ++met;
            return true;
         } );
      } );
      if ( met != size_.records ) abort();
      return figure;
   }
   double iterateCrc( const TableReader& reader ) {
      return timed( size_.records, [&] {
         reader.visit( [&]( Position position, const void* record ) {
            uint64_t hash = position;
            uint32_t crc =
               Detail::recordChecksum( record, size_.recordSize, { 1, 2, hash } );
            used( &crc );
            return true;
         } );
      } );
   }

   void reads( const CopyPeer& copy ) {
      Writer writer = open();
      inReader( [&] {
         TableReader reader( path_, layout_ );
         std::vector<double> base, single, batch, all, crc;
         for ( int i = 0; i < rounds; ++i ) {
            base.push_back( copy.read( visited_, record_.data() ) );
            single.push_back( lookupSingle( reader ) );
            batch.push_back( lookupBatch( reader ) );
            all.push_back( iterate( reader ) );
            crc.push_back( iterateCrc( reader ) );
         }
         double memory = median( base );
         row( "look-up, single / memcpy", median( single ), memory,
              targets_.lookup );
         row( "look-up, batch / memcpy", median( batch ), memory,
              targets_.lookupBatch );
         row( "iterate, verified / memcpy", median( all ), memory,
              targets_.iterate );
         double figures[] = { median( single ), median( batch ), median( crc ) };
         std::copy( figures, figures + 3, shared_.figures );
      } );
      beside( *writer );
   }

   // Measures look-ups while the writer rewrites without a pause, and writes beside
   // a mirror.
   void beside( TableWriter& writer ) {
      shared_.stage = 0;
      inReader(
         [&] {
            TableReader reader( path_, layout_ );
            lookupSingle( reader );
            std::vector<double> values;
            for ( int i = 0; i < rounds; ++i )
               values.push_back( lookupSingle( reader ) );
            row( "look-up while the writer bursts / quiet", median( values ),
                 shared_.figures[0], targets_.burst );
            shared_.stage = 1;
         },
         [&] {
            while ( shared_.stage == 0 ) rewriteBatch( writer, nullptr );
         } );
      besideMirrors( writer, 1, targets_.mirror );
      besideMirrors( writer, 3, 0 );
      besideStopped( writer );
   }

   // Rewrites for at least 0.2 s.
   double rewrites( TableWriter& writer ) {
      std::vector<double> values;
      double until = nowNs() + 2e8;
      while ( values.size() < rounds || nowNs() < until ) {
         values.push_back( rewriteSingle( writer ) );
      }
      return median( values );
   }

   void follow() {
      TableReader reader( path_, layout_ );
      TableFollower follower( reader );
      uint64_t changes = 0;
      ++shared_.stage;
      while ( !shared_.stamp ) {
         follower.drain( [&]( const Change& ) { ++changes; } );
         usleep( 1000 );
      }
      if ( !changes ) abort();
   }

   // Each mirror drains once a millisecond.
   void besideMirrors( TableWriter& writer, uint64_t mirrors, double target ) {
      shared_.stage = shared_.stamp = 0;
      double alone = rewrites( writer );
      std::function<void()> meanwhile = [&] {
         while ( shared_.stage < mirrors ) usleep( 100 );
         row( mirrors == 1 ? "write beside one mirror / alone"
                           : "write beside three mirrors / alone",
              rewrites( writer ), alone, target );
         shared_.stamp = 1;
      };
      for ( uint64_t i = 0; i < mirrors; ++i ) {
         meanwhile = [this, inner = std::move( meanwhile )] {
            inReader( [this] { follow(); }, inner );
         };
      }
      meanwhile();
   }

   // The reader follows the table, then is stopped in the middle of a visit.
   void besideStopped( TableWriter& writer ) {
      shared_.stage = shared_.stamp = 0;
      double alone = rewrites( writer );
      inReader(
         [&] {
            TableReader reader( path_, layout_ );
            TableFollower follower( reader );
            uint32_t met = 0;
            reader.visit( [&]( Position, const void* ) {
               if ( ++met < size_.records / 2 ) return true;
               shared_.stage = uint64_t( getpid() );
               raise( SIGSTOP );
               return false;
            } );
         },
         [&] {
            while ( shared_.stage == 0 ) usleep( 100 );
            auto pid = pid_t( shared_.stage );
            int status = 0;
            if ( waitpid( pid, &status, WUNTRACED ) != pid ||
                 !WIFSTOPPED( status ) )
               abort();
            row( "write beside a stopped reader / alone", rewrites( writer ), alone,
                 0 );
            kill( pid, SIGCONT );
         } );
   }

   void remounts() {
      std::vector<double> values;
      for ( int i = 0; i < rounds; ++i ) {
         Writer writer;
         values.push_back( timed( size_.records, [&] { writer = open(); } ) );
         if ( writer->attachReport().survivors != size_.records ) abort();
      }
      row( "remount and verify / iterate + CRC", median( values ),
           shared_.figures[2], targets_.remount );
   }

   enum Figure {
      inserts,
      singles,
      handles,
      batches,
      looks,
      lookBatches,
      figureCount
   };

   // Measures a peer's operations and the table's in turns, in one process; leaves
   // the medians of each in shared_. Returns false without the peer.
   bool measure( const char* name, PeerFactory make ) {
      // Single writes are slow in some peers; a part of the table is enough.
      size_t part = std::min<size_t>( visited_.count(), 20000 );
      std::string path = directory_ + "/" + name;
      shared_.stage = 0;
      inReader( [&] {
         std::vector<double> theirs[figureCount], ours[figureCount];
         std::unique_ptr<Peer> peer;
         Writer writer;
         for ( int i = 0; i < 3; ++i ) {
            peer.reset();
            std::filesystem::remove_all( path );
            peer = make( path, size_ );
            if ( !peer ) return;
            theirs[inserts].push_back( peer->insert( inserted_, record_.data() ) );
            writer.reset();
            removeTableFiles( path_ );
            writer = open();
            ours[inserts].push_back( insertAll( *writer ) );
         }
         TableReader reader( path_, layout_ );
         std::vector<Position> positions = positionsIn( *writer );
         for ( int i = 0; i < rounds; ++i ) {
            std::byte* record = record_.data();
            theirs[singles].push_back(
               peer->writeSingle( visited_, record, part ) );
            ours[singles].push_back( rewriteSingle( *writer ) );
            theirs[handles].push_back( peer->writeHandle( visited_, record ) );
            ours[handles].push_back( rewriteSingle( *writer, &positions ) );
            theirs[batches].push_back( peer->writeBatch( visited_, record ) );
            ours[batches].push_back( rewriteBatch( *writer, nullptr ) );
            theirs[looks].push_back( peer->readSingle( visited_, record ) );
            ours[looks].push_back( lookupSingle( reader ) );
            theirs[lookBatches].push_back( peer->readBatch( visited_, record ) );
            ours[lookBatches].push_back( lookupBatch( reader ) );
         }
         for ( int i = 0; i < figureCount; ++i ) {
            shared_.figures[i] = median( ours[i] );
            shared_.figures[figureCount + i] = median( theirs[i] );
         }
         peer.reset();
         std::filesystem::remove_all( path );
         shared_.stage = 1;
      } );
      if ( !shared_.stage ) printf( "  no figures of %s\n", name );
      return shared_.stage != 0;
   }
   void faster( const char* what, Figure figure, double target ) {
      fasterRow( what, shared_.figures[figure],
                 shared_.figures[figureCount + figure], target );
   }
   void compare( const char* what, Figure figure, double target ) {
      row( what, shared_.figures[figure], shared_.figures[figureCount + figure],
           target );
   }

   void peers() {
      if ( measure( "LMDB", lmdbPeer ) ) {
         faster( "write, single, against LMDB", singles, targets_.lmdbWrite );
         faster( "write, batch, against LMDB", batches, targets_.lmdbWriteBatch );
         faster( "look-up, single, against LMDB", looks, targets_.lmdbLookup );
         faster( "look-up, batch, against LMDB", lookBatches,
                 targets_.lmdbLookupBatch );
      }
      if ( measure( "rte_hash", rteHashPeer ) ) {
         compare( "insert, single / rte_hash", inserts, 1 );
         compare( "rewrite, single / rte_hash, former looked up", singles, 1 );
         compare( "rewrite, handle / rte_hash, former known", handles, 1 );
         compare( "look-up, single / rte_hash", looks, 1 );
         compare( "look-up, batch / rte_hash", lookBatches, 1 );
      }
      if ( measure( "Boost.Interprocess", boostPeer ) ) {
         compare( "insert, single / Boost.Interprocess", inserts, 0 );
         compare( "rewrite, single / Boost.Interprocess", singles, 0 );
         compare( "rewrite, batch / Boost.Interprocess", batches, 0 );
         compare( "look-up, single / Boost.Interprocess", looks, 0 );
         compare( "look-up, batch / Boost.Interprocess", lookBatches, 0 );
      }
   }

   // Measures from the writer's change to the value in a reader that slept, and
   // from a bare write to a watched file to the watcher's wake-up.
   void latency() {
      Writer writer = open();
      std::vector<double> bare = bareLatency(), whole = tableLatency( *writer );
      row( "change to value, median, against bare bell", median( whole ),
           median( bare ), 1.5 );
      row( "the same, 99th percentile", percentile( whole, 0.99 ),
           percentile( bare, 0.99 ), 2 );
   }

   // `ring` makes the child store a time into shared_.stamp.
   std::vector<double> roundTrips( const std::function<void()>& child,
                                   const std::function<void( uint64_t )>& ring ) {
      constexpr uint64_t count = 1000;
      std::vector<double> values;
      shared_.stage = 0;
      inReader( child, [&] {
         while ( shared_.stage == 0 ) usleep( 100 );
         for ( uint64_t i = 1; i <= count; ++i ) {
            // Lets the reader fall asleep, some time after its last call.
            usleep( 1500 );
            shared_.stamp = 0;
            double start = nowNs();
            ring( i );
            while ( !shared_.stamp ) usleep( 50 );
            values.push_back( double( shared_.stamp.load() ) - start );
         }
         shared_.stage = 2;
         ring( count + 1 );
      } );
      return values;
   }
   std::vector<double> bareLatency() {
      std::string path = directory_ + "/bare";
      int file = open_( path );
      auto values = roundTrips(
         [&] {
            int fd = inotify_init1( IN_NONBLOCK );
            inotify_add_watch( fd, path.c_str(), IN_MODIFY );
            shared_.stage = 1;
            char events[4096];
            while ( shared_.stage == 1 ) {
               pollfd poll{ fd, POLLIN, 0 };
               ::poll( &poll, 1, -1 );
               if ( read( fd, events, sizeof( events ) ) <= 0 ) continue;
               shared_.stamp = uint64_t( nowNs() );
            }
         },
         [&]( uint64_t ) {
            if ( pwrite( file, "x", 1, 0 ) != 1 ) abort();
         } );
      close( file );
      return values;
   }
   std::vector<double> tableLatency( TableWriter& writer ) {
      return roundTrips(
         [&] {
            TableReader reader( path_, layout_ );
            TableFollower follower( reader );
            DoorbellHub hub;
            hub.add( path_, [&]( auto ) {
               follower.drain( [&]( const Change& change ) {
                  used( change.record );
                  shared_.stamp = uint64_t( nowNs() );
               } );
            } );
            hub.dispatch( nowNs() * 1e-9 );
            shared_.stage = 1;
            while ( shared_.stage == 1 ) {
               double due = hub.due() - nowNs() * 1e-9;
               int wait =
                  std::isinf( due ) ? -1 : int( std::max( due, 0.0 ) * 1e3 ) + 1;
               pollfd poll{ hub.fd(), POLLIN, 0 };
               ::poll( &poll, 1, wait );
               hub.dispatch( nowNs() * 1e-9 );
            }
         },
         [&]( uint64_t i ) {
            std::memcpy( record_.data(), visited_.at( i ), size_.keySize );
            writer.put( record_.data() );
            writer.ring();
         } );
   }
   static int open_( const std::string& path ) {
      return ::open( path.c_str(), O_RDWR | O_CREAT, 0640 );
   }

   // Counts the index lines that a miss reads after half of the keys were exchanged
   // 20 times in a full table.
   void churn() {
      Writer writer = open();
      std::mt19937_64 random( 3 );
      Keys next( size_, size_.records );
      next.shuffle( 4 );
      std::vector<std::vector<std::byte>> standing, waiting;
      for ( size_t i = 0; i < size_.records; ++i ) {
         standing.emplace_back( inserted_.at( i ),
                                inserted_.at( i ) + size_.keySize );
         waiting.emplace_back( next.at( i ), next.at( i ) + size_.keySize );
      }
      for ( int round = 0; round < 20; ++round ) {
         std::shuffle( standing.begin(), standing.end(), random );
         std::shuffle( waiting.begin(), waiting.end(), random );
         for ( size_t i = 0; i < size_.records / 2; ++i ) {
            if ( !writer->remove( standing[i].data() ) ) abort();
            std::memcpy( record_.data(), waiting[i].data(), size_.keySize );
            writer->put( record_.data() );
            std::swap( standing[i], waiting[i] );
         }
      }
      printf( "  %-44s %10.3f %10s %7s %7.2f\n",
              "lines a miss looks at after churn, mean", linesOfMisses( waiting ),
              "", "", 2.0 );
   }
   double linesOfMisses( const std::vector<std::vector<std::byte>>& keys ) {
      int fd = open_( path_ );
      size_t bytes = std::filesystem::file_size( path_ );
      void* memory = mmap( nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0 );
      close( fd );
      auto* base = static_cast<const std::byte*>( memory );
      Detail::FileHeader header = Detail::readHeader( base, bytes, bytes, path_ );
      Detail::ConstView view{
         base, Detail::geometryOf( header ), { header.seed[0], header.seed[1] } };
      uint64_t lines = 0;
      for ( const auto& key : keys ) {
         uint32_t line = view.geometry.homeOf(
            Detail::keyHash( key.data(), header.keySize, header.seed ) );
         do ++lines;
         while ( *view.passed( line++ ) );
      }
      munmap( memory, bytes );
      return double( lines ) / double( keys.size() );
   }

   Size size_;
   Targets targets_;
   std::string directory_;
   std::string path_;
   Layout layout_;
   Keys inserted_;
   Keys visited_;
   std::vector<std::byte> records_;
   std::vector<std::byte> record_;
   Shared& shared_;
};

constexpr Size sizeA{ "A", 10000, 320, 40 };
constexpr Size sizeB{ "B", 600000, 200, 72 };
constexpr Targets targetsA{ 2.5, 2.0, 1.4, 4.5, 2.6, 1.9, 2.5,
                            1.5, 1.5, 1.6, 10,  15,  6,   8 };
constexpr Targets targetsB{ 4,   2.2, 1.5, 6, 4.2, 2,   1.5,
                            2.2, 1.5, 1.2, 8, 15,  5.5, 12 };

}
}

int main( int argc, char** argv ) {
   using namespace Brane::Bench;
   std::string which = argc > 1 ? argv[1] : "AB";
   char name[] = "/dev/shm/pimsm-bench-XXXXXX";
   std::string directory = mkdtemp( name );
   if ( which.find( 'A' ) != std::string::npos ) {
      TableBench( sizeA, targetsA, directory ).run();
   }
   if ( which.find( 'B' ) != std::string::npos ) {
      TableBench( sizeB, targetsB, directory ).run();
   }
   std::filesystem::remove_all( directory );
}
