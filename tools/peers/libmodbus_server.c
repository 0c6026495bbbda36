/* A libmodbus server (Debian's libmodbus) used only as an independent peer in tests.
 *
 * Seeded like tools/peers/pymodbus_server.py:
 *   coil i = (i % 3 == 0), discrete input i = (i % 2 == 0),
 *   holding register i = 1000 + i, input register i = 2000 + i   (addresses 0..999)
 *
 * usage: libmodbus_server tcp PORT | rtu DEVICE [BAUD]
 * Serves one TCP client at a time, until killed. */
#include <errno.h>
#include <modbus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define SIZE 1000

static modbus_mapping_t* seeded_mapping(void) {
    modbus_mapping_t* m = modbus_mapping_new(SIZE, SIZE, SIZE, SIZE);
    if (m == NULL) return NULL;
    for (int i = 0; i < SIZE; ++i) {
        m->tab_bits[i] = (i % 3 == 0);
        m->tab_input_bits[i] = (i % 2 == 0);
        m->tab_registers[i] = (uint16_t)(1000 + i);
        m->tab_input_registers[i] = (uint16_t)(2000 + i);
    }
    return m;
}

static void serve(modbus_t* ctx, modbus_mapping_t* m) {
    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
        int rc = modbus_receive(ctx, query);
        if (rc > 0) {
            modbus_reply(ctx, query, rc, m);
        } else if (rc == -1 && errno != EMBBADCRC && errno != ETIMEDOUT) {
            return;
        }
    }
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s tcp PORT | rtu DEVICE [BAUD]\n", argv[0]);
        return 2;
    }
    modbus_mapping_t* m = seeded_mapping();
    if (m == NULL) return 1;
    if (strcmp(argv[1], "tcp") == 0) {
        modbus_t* ctx = modbus_new_tcp("127.0.0.1", atoi(argv[2]));
        int listener = modbus_tcp_listen(ctx, 5);
        if (listener < 0) {
            fprintf(stderr, "listen failed: %s\n", modbus_strerror(errno));
            return 1;
        }
        for (;;) {
            if (modbus_tcp_accept(ctx, &listener) < 0) continue;
            serve(ctx, m);
            modbus_close(ctx);
        }
    }
    modbus_t* ctx = modbus_new_rtu(argv[2], argc > 3 ? atoi(argv[3]) : 19200, 'N', 8, 1);
    modbus_set_slave(ctx, 1);
    if (modbus_connect(ctx) != 0) {
        fprintf(stderr, "open failed: %s\n", modbus_strerror(errno));
        return 1;
    }
    for (;;) serve(ctx, m);
}
