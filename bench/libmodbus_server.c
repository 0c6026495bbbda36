/* The libmodbus server of the benchmark, the reference slave.
 *
 * Usage: kestrel_bench_libmodbus_server PORTFILE [LIFETIME_SECONDS]
 *          Modbus TCP on 127.0.0.1 with an ephemeral port, written to PORTFILE; one client at a time.
 *        kestrel_bench_libmodbus_server --rtu DEVICE [LIFETIME_SECONDS]
 *          Modbus RTU on a serial device (19200 8N1, unit 1).
 *
 * Serves the image of bench_request.h until killed or LIFETIME_SECONDS (default 120) have passed. */
#include <arpa/inet.h>
#include <modbus.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench_request.h"

static modbus_mapping_t* NewImage(void) {
    modbus_mapping_t* map = modbus_mapping_new(BENCH_COILS, BENCH_COILS, BENCH_REGISTERS, BENCH_REGISTERS);
    if (map == NULL) return NULL;
    for (int i = 0; i < BENCH_REGISTERS; ++i) map->tab_registers[i] = (uint16_t)i;
    for (int i = 0; i < BENCH_COILS; ++i) map->tab_bits[i] = (uint8_t)BenchCoil(i);
    return map;
}

static int ServeRtu(const char* device, modbus_mapping_t* map) {
    modbus_t* ctx = modbus_new_rtu(device, 19200, 'N', 8, 1);
    if (ctx == NULL || modbus_connect(ctx) == -1) return 1;
    modbus_set_slave(ctx, 1);
    uint8_t query[MODBUS_RTU_MAX_ADU_LENGTH];
    for (;;) {
        const int rc = modbus_receive(ctx, query);
        if (rc > 0) modbus_reply(ctx, query, rc, map);
    }
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s PORTFILE [LIFETIME_SECONDS] | --rtu DEVICE [LIFETIME_SECONDS]\n", argv[0]);
        return 2;
    }
    const int rtu = strcmp(argv[1], "--rtu") == 0 && argc > 2;
    const int lifetimeArg = rtu ? 3 : 2;
    const unsigned lifetime = argc > lifetimeArg ? (unsigned)atoi(argv[lifetimeArg]) : 120u;
    alarm(lifetime); /* bounded: SIGALRM ends the process */

    modbus_mapping_t* map = NewImage();
    if (map == NULL) return 1;
    if (rtu) return ServeRtu(argv[2], map);

    modbus_t* ctx = modbus_new_tcp("127.0.0.1", 0);
    if (ctx == NULL) return 1;
    int listener = modbus_tcp_listen(ctx, 1);
    if (listener < 0) return 1;
    struct sockaddr_in address;
    socklen_t length = sizeof address;
    getsockname(listener, (struct sockaddr*)&address, &length);

    char tmp[4096];
    snprintf(tmp, sizeof tmp, "%s.tmp", argv[1]);
    FILE* f = fopen(tmp, "w");
    if (f == NULL) return 1;
    fprintf(f, "%u\n", (unsigned)ntohs(address.sin_port));
    fclose(f);
    rename(tmp, argv[1]);

    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
        if (modbus_tcp_accept(ctx, &listener) < 0) break;
        for (;;) {
            const int rc = modbus_receive(ctx, query);
            if (rc > 0) {
                modbus_reply(ctx, query, rc, map);
            } else if (rc == -1) {
                break; /* the client closed the connection */
            }
        }
        modbus_close(ctx); /* the accepted socket; the listener stays open */
    }
    close(listener);
    modbus_mapping_free(map);
    modbus_free(ctx);
    return 0;
}
