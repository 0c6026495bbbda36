/* A Modbus master built on libmodbus, used by the interop tests to talk to Kestrel's slave.
 *
 *   slave_libmodbus_client tcp PORT OP...
 *   slave_libmodbus_client rtu DEVICE BAUD PARITY OP...
 *
 * Each OP runs in order on one connection and prints one line:
 *   unit:N           use unit id N from here on                 -> "unit N"
 *   timeout:MS       wait MS ms for each response from here on  -> "timeout MS"
 *   rc:A:N rd:A:N    read coils / discrete inputs               -> "rc A b b ..."
 *   rh:A:N ri:A:N    read holding / input registers             -> "rh A v v ..."
 *   wc:A:B           write one coil (0 or 1)                    -> "wc A ok"
 *   wr:A:V           write one register                         -> "wr A ok"
 *   wcs:A:B,B...     write several coils                        -> "wcs A ok"
 *   wrs:A:V,V...     write several registers                    -> "wrs A ok"
 * A Modbus exception prints "<op> A exception N", any other failure "<op> A error TEXT".
 * Exit code 0 after all OPs, 3 when the connection cannot be made, 2 for bad arguments. */
#include <errno.h>
#include <modbus.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int ParseList(const char* text, uint16_t* out, int max) {
    int n = 0;
    const char* p = text;
    while (*p != '\0' && n < max) {
        char* end = NULL;
        out[n++] = (uint16_t)strtoul(p, &end, 0);
        if (end == p) return -1;
        p = *end == ',' ? end + 1 : end;
    }
    return n;
}

static void Failed(const char* op, int address) {
    /* Modbus exception codes 1..11; the errors after them (bad CRC, bad data, ...) print their text. */
    if (errno > MODBUS_ENOBASE && errno <= MODBUS_ENOBASE + 11) {
        printf("%s %d exception %d\n", op, address, errno - MODBUS_ENOBASE);
    } else {
        printf("%s %d error %s\n", op, address, modbus_strerror(errno));
    }
}

static int RunOp(modbus_t* ctx, const char* operation) {
    char op[8] = {0};
    const char* colon = strchr(operation, ':');
    if (colon == NULL || colon - operation >= (long)sizeof op) return -1;
    memcpy(op, operation, (size_t)(colon - operation));
    const char* rest = colon + 1;
    if (strcmp(op, "unit") == 0) {
        const int unit = atoi(rest);
        modbus_set_slave(ctx, unit);
        printf("unit %d\n", unit);
        return 0;
    }
    if (strcmp(op, "timeout") == 0) {
        const int ms = atoi(rest);
        modbus_set_response_timeout(ctx, (uint32_t)(ms / 1000), (uint32_t)(ms % 1000) * 1000);
        printf("timeout %d\n", ms);
        return 0;
    }
    char* end = NULL;
    const int address = (int)strtoul(rest, &end, 0);
    if (end == rest || *end != ':') return -1;
    const char* arg = end + 1;
    static uint16_t words[2048];
    static uint8_t bits[2048];
    int n = 0;
    if (strcmp(op, "rc") == 0 || strcmp(op, "rd") == 0) {
        n = atoi(arg);
        if (n < 0 || n > 2048) return -1;
        const int got = strcmp(op, "rc") == 0 ? modbus_read_bits(ctx, address, n, bits)
                                              : modbus_read_input_bits(ctx, address, n, bits);
        if (got < 0) {
            Failed(op, address);
        } else {
            printf("%s %d", op, address);
            for (int i = 0; i < got; ++i) printf(" %d", bits[i]);
            printf("\n");
        }
    } else if (strcmp(op, "rh") == 0 || strcmp(op, "ri") == 0) {
        n = atoi(arg);
        if (n < 0 || n > 2048) return -1;
        const int got = strcmp(op, "rh") == 0 ? modbus_read_registers(ctx, address, n, words)
                                              : modbus_read_input_registers(ctx, address, n, words);
        if (got < 0) {
            Failed(op, address);
        } else {
            printf("%s %d", op, address);
            for (int i = 0; i < got; ++i) printf(" %u", words[i]);
            printf("\n");
        }
    } else if (strcmp(op, "wc") == 0 || strcmp(op, "wr") == 0) {
        const int value = (int)strtoul(arg, NULL, 0);
        const int rc = strcmp(op, "wc") == 0 ? modbus_write_bit(ctx, address, value)
                                             : modbus_write_register(ctx, address, (uint16_t)value);
        if (rc < 0) Failed(op, address);
        else printf("%s %d ok\n", op, address);
    } else if (strcmp(op, "wcs") == 0 || strcmp(op, "wrs") == 0) {
        n = ParseList(arg, words, 2048);
        if (n < 0) return -1;
        int rc;
        if (strcmp(op, "wcs") == 0) {
            for (int i = 0; i < n; ++i) bits[i] = words[i] ? 1 : 0;
            rc = modbus_write_bits(ctx, address, n, bits);
        } else {
            rc = modbus_write_registers(ctx, address, n, words);
        }
        if (rc < 0) Failed(op, address);
        else printf("%s %d ok\n", op, address);
    } else {
        return -1;
    }
    return 0;
}

int main(int argc, char** argv) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    modbus_t* ctx = NULL;
    int first = 0;
    if (argc >= 3 && strcmp(argv[1], "tcp") == 0) {
        ctx = modbus_new_tcp("127.0.0.1", atoi(argv[2]));
        first = 3;
    } else if (argc >= 5 && strcmp(argv[1], "rtu") == 0) {
        ctx = modbus_new_rtu(argv[2], atoi(argv[3]), argv[4][0], 8, 1);
        first = 5;
    } else {
        fprintf(stderr, "usage: %s tcp PORT OP... | rtu DEVICE BAUD PARITY OP...\n", argv[0]);
        return 2;
    }
    if (ctx == NULL) return 3;
    modbus_set_slave(ctx, 1);
    modbus_set_response_timeout(ctx, 2, 0);
    if (modbus_connect(ctx) != 0) {
        fprintf(stderr, "connect failed: %s\n", modbus_strerror(errno));
        modbus_free(ctx);
        return 3;
    }
    int status = 0;
    for (int i = first; i < argc; ++i) {
        if (RunOp(ctx, argv[i]) != 0) {
            fprintf(stderr, "bad operation '%s'\n", argv[i]);
            status = 2;
            break;
        }
    }
    modbus_close(ctx);
    modbus_free(ctx);
    return status;
}
