/* The four requests every throughput row of the benchmark measures, shared by the C (libmodbus)
 * and the C++ (Kestrel) programs so both sides send the same frames:
 *   fc03x10    read 10 holding registers from 0
 *   fc03x125   read 125 holding registers from 0
 *   fc01x2000  read 2000 coils from 0
 *   fc16x123   write 123 holding registers from 0 (values 0..122, what the servers hold anyway)
 * Both servers hold register i = i for i < 1000 and coil i = (i % 3 == 0) for i < 2000. */
#ifndef KESTREL_BENCH_REQUEST_H
#define KESTREL_BENCH_REQUEST_H

#include <string.h>

enum BenchRequest { kFc03x10, kFc03x125, kFc01x2000, kFc16x123, kBadRequest };

static inline enum BenchRequest ParseBenchRequest(const char* name) {
    if (strcmp(name, "fc03x10") == 0) return kFc03x10;
    if (strcmp(name, "fc03x125") == 0) return kFc03x125;
    if (strcmp(name, "fc01x2000") == 0) return kFc01x2000;
    if (strcmp(name, "fc16x123") == 0) return kFc16x123;
    return kBadRequest;
}

#define BENCH_REGISTERS 1000
#define BENCH_COILS 2000
static inline int BenchCoil(int i) { return i % 3 == 0; }

#endif
