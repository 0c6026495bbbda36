/* The libmodbus client of the benchmark: the reference master, and the one client that measures
 * both servers (libmodbus's and Kestrel's slave).
 *
 * Usage: kestrel_bench_libmodbus_master HOST PORT SECONDS REQUEST
 *          transactions per second of REQUEST (see bench_request.h) over SECONDS; one line.
 *        kestrel_bench_libmodbus_master HOST PORT --reads N
 *          N reads of 10 holding registers, printing every value on a line of its own, as the
 *          command line's "read --fc 3 --count 10 --repeat N" does. The caller times the process.
 *        kestrel_bench_libmodbus_master --rtu DEVICE COUNT
 *          COUNT reads of 10 holding registers over RTU (19200 8N1, unit 1); prints transactions/s.
 *
 * Exits 1 when a transaction fails or returns wrong data. */
#include <errno.h>
#include <modbus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "bench_request.h"

static double Now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

static int Fail(const char* what) {
    fprintf(stderr, "%s failed: %s\n", what, modbus_strerror(errno));
    return 1;
}

static uint16_t g_registers[125];
static uint8_t g_bits[2000];
static uint16_t g_writeValues[123];

/* One transaction; 0 when it went through with the expected data. */
static int RunOne(modbus_t* ctx, enum BenchRequest request) {
    switch (request) {
        case kFc03x10: return modbus_read_registers(ctx, 0, 10, g_registers) == 10 && g_registers[9] == 9 ? 0 : -1;
        case kFc03x125:
            return modbus_read_registers(ctx, 0, 125, g_registers) == 125 && g_registers[124] == 124 ? 0 : -1;
        case kFc01x2000:
            return modbus_read_bits(ctx, 0, 2000, g_bits) == 2000 && g_bits[1998] == 1 && g_bits[1999] == 0 ? 0 : -1;
        case kFc16x123: return modbus_write_registers(ctx, 0, 123, g_writeValues) == 123 ? 0 : -1;
        default: return -1;
    }
}

static int Throughput(const char* host, int port, double seconds, enum BenchRequest request) {
    modbus_t* ctx = modbus_new_tcp(host, port);
    if (ctx == NULL || modbus_connect(ctx) == -1) return Fail("connect");
    modbus_set_slave(ctx, 1);
    long count = 0;
    const double start = Now();
    double elapsed = 0.0;
    /* Bounded by time and by count. */
    while (elapsed < seconds && count < 100000000L) {
        if (RunOne(ctx, request) != 0) return Fail("transaction");
        ++count;
        if ((count & 15) == 0) elapsed = Now() - start;
    }
    elapsed = Now() - start;
    printf("%.0f\n", (double)count / elapsed);
    modbus_close(ctx);
    modbus_free(ctx);
    return 0;
}

static int PrintedReads(const char* host, int port, long reads) {
    modbus_t* ctx = modbus_new_tcp(host, port);
    if (ctx == NULL || modbus_connect(ctx) == -1) return Fail("connect");
    modbus_set_slave(ctx, 1);
    for (long i = 0; i < reads; ++i) {
        if (RunOne(ctx, kFc03x10) != 0) return Fail("read");
        for (int r = 0; r < 10; ++r) printf("%u\n", (unsigned)g_registers[r]);
    }
    modbus_close(ctx);
    modbus_free(ctx);
    return 0;
}

static int RtuReads(const char* device, long count) {
    modbus_t* ctx = modbus_new_rtu(device, 19200, 'N', 8, 1);
    if (ctx == NULL || modbus_connect(ctx) == -1) return Fail("open");
    modbus_set_slave(ctx, 1);
    const double start = Now();
    for (long i = 0; i < count; ++i) {
        if (RunOne(ctx, kFc03x10) != 0) return Fail("rtu read");
    }
    printf("%.1f\n", (double)count / (Now() - start));
    modbus_close(ctx);
    modbus_free(ctx);
    return 0;
}

int main(int argc, char** argv) {
    for (int i = 0; i < 123; ++i) g_writeValues[i] = (uint16_t)i;
    if (argc == 4 && strcmp(argv[1], "--rtu") == 0) return RtuReads(argv[2], atol(argv[3]));
    if (argc == 5 && strcmp(argv[3], "--reads") == 0) return PrintedReads(argv[1], atoi(argv[2]), atol(argv[4]));
    if (argc == 5 && ParseBenchRequest(argv[4]) != kBadRequest) {
        return Throughput(argv[1], atoi(argv[2]), atof(argv[3]), ParseBenchRequest(argv[4]));
    }
    fprintf(stderr, "usage: %s HOST PORT SECONDS fc03x10|fc03x125|fc01x2000|fc16x123\n"
                    "       %s HOST PORT --reads N\n       %s --rtu DEVICE COUNT\n", argv[0], argv[0], argv[0]);
    return 2;
}
