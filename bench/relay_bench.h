// The relay alone, between an authenticator and a RADIUS server that this program plays both.
#ifndef LANYARD_BENCH_RELAY_BENCH_H
#define LANYARD_BENCH_RELAY_BENCH_H

namespace lanyard::bench {

// What the relay adds to one round, for small and for large packets.
void measureRounds();

// How many conversations with a State the relay holds in the library's own partition.
void measureCapacity();

}  // namespace lanyard::bench

#endif
