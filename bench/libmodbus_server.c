/* A Modbus TCP server built on libmodbus, the independent peer of the master benchmark.
 *
 * Usage: kestrel_bench_libmodbus_server PORTFILE [LIFETIME_SECONDS]
 *
 * Listens on 127.0.0.1 with an ephemeral port, writes the port to PORTFILE, and serves one
 * client at a time (holding register i holds i) until it is killed or LIFETIME_SECONDS
 * (default 120) have passed. */
#include <arpa/inet.h>
#include <modbus.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s PORTFILE [LIFETIME_SECONDS]\n", argv[0]);
        return 2;
    }
    const unsigned lifetime = argc > 2 ? (unsigned)atoi(argv[2]) : 120u;
    alarm(lifetime); /* bounded: SIGALRM ends the process */

    modbus_t* ctx = modbus_new_tcp("127.0.0.1", 0);
    modbus_mapping_t* map = modbus_mapping_new(1000, 1000, 1000, 1000);
    if (ctx == NULL || map == NULL) return 1;
    for (int i = 0; i < 1000; ++i) map->tab_registers[i] = (uint16_t)i;

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
