/* The libmodbus side of the master benchmark: FC03 reads of 10 holding registers in a loop.
 *
 * Usage: kestrel_bench_libmodbus_master HOST PORT SECONDS
 *
 * Prints the number of transactions per second (one line); exits 1 when a read fails. */
#include <errno.h>
#include <modbus.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double Now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: %s HOST PORT SECONDS\n", argv[0]);
        return 2;
    }
    const double seconds = atof(argv[3]);
    modbus_t* ctx = modbus_new_tcp(argv[1], atoi(argv[2]));
    if (ctx == NULL || modbus_connect(ctx) == -1) {
        fprintf(stderr, "connect failed: %s\n", modbus_strerror(errno));
        return 1;
    }
    modbus_set_slave(ctx, 1);
    uint16_t registers[10];
    long count = 0;
    const double start = Now();
    double elapsed = 0.0;
    /* Bounded by time and by count. */
    while (elapsed < seconds && count < 100000000L) {
        if (modbus_read_registers(ctx, 0, 10, registers) != 10 || registers[9] != 9) {
            fprintf(stderr, "read failed: %s\n", modbus_strerror(errno));
            return 1;
        }
        ++count;
        if ((count & 63) == 0) elapsed = Now() - start;
    }
    elapsed = Now() - start;
    printf("%.0f\n", (double)count / elapsed);
    modbus_close(ctx);
    modbus_free(ctx);
    return 0;
}
