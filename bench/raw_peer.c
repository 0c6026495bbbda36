/* The floor of the comparison: a Modbus TCP client and server that do nothing but the system calls
 * one transaction needs (one send and one recv each), with no framing checks, no logging and no
 * trace. No real master or slave can be faster on the same machine, so its ratio against libmodbus
 * is the most any implementation can reach there.
 *
 * Usage: kestrel_bench_raw_peer client HOST PORT SECONDS REQUEST   transactions/s (one line)
 *        kestrel_bench_raw_peer server PORTFILE [LIFETIME_SECONDS]
 * REQUEST and the served image are those of bench_request.h. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "bench_request.h"

static double Now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

/* The request ADU and the length of its response. */
static size_t BuildRequest(enum BenchRequest request, uint8_t* out, size_t* responseLength) {
    static const uint8_t fc[] = {3, 3, 1, 16};
    static const uint16_t quantity[] = {10, 125, 2000, 123};
    size_t n = 12;
    out[7] = fc[request];
    out[8] = 0;
    out[9] = 0;
    out[10] = (uint8_t)(quantity[request] >> 8);
    out[11] = (uint8_t)(quantity[request] & 0xFF);
    if (request == kFc16x123) {
        out[12] = 246;
        for (int i = 0; i < 123; ++i) {
            out[13 + 2 * i] = 0;
            out[14 + 2 * i] = (uint8_t)i;
        }
        n = 13 + 246;
    }
    out[0] = out[1] = out[2] = out[3] = 0;
    out[4] = (uint8_t)((n - 6) >> 8);
    out[5] = (uint8_t)((n - 6) & 0xFF);
    out[6] = 1;
    *responseLength = request == kFc03x10 ? 29 : request == kFc03x125 ? 259 : request == kFc01x2000 ? 259 : 12;
    return n;
}

static int Client(const char* host, int port, double seconds, enum BenchRequest request) {
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)port);
    inet_pton(AF_INET, host, &address.sin_addr);
    if (connect(s, (struct sockaddr*)&address, sizeof address) != 0) return 1;
    uint8_t frame[300], response[600];
    size_t expected = 0;
    const size_t length = BuildRequest(request, frame, &expected);
    long count = 0;
    const double start = Now();
    double elapsed = 0.0;
    while (elapsed < seconds && count < 100000000L) {
        frame[0] = (uint8_t)(count >> 8);
        frame[1] = (uint8_t)count;
        if (send(s, frame, length, MSG_NOSIGNAL) != (ssize_t)length) return 1;
        size_t got = 0;
        while (got < expected) {
            const ssize_t r = recv(s, response + got, sizeof response - got, 0);
            if (r < 1) return 1;
            got += (size_t)r;
        }
        ++count;
        if ((count & 15) == 0) elapsed = Now() - start;
    }
    printf("%.0f\n", (double)count / (Now() - start));
    close(s);
    return 0;
}

static uint16_t g_registers[BENCH_REGISTERS];
static uint8_t g_coils[BENCH_COILS];

/* The response to one request, written into out; its length. */
static size_t Answer(const uint8_t* q, uint8_t* out) {
    const uint16_t start = (uint16_t)((q[8] << 8) | q[9]);
    const uint16_t count = (uint16_t)((q[10] << 8) | q[11]);
    memcpy(out, q, 8);
    size_t n = 8;
    if (q[7] == 3 && start + count <= BENCH_REGISTERS) {
        out[n++] = (uint8_t)(2 * count);
        for (int i = 0; i < count; ++i) {
            out[n++] = (uint8_t)(g_registers[start + i] >> 8);
            out[n++] = (uint8_t)g_registers[start + i];
        }
    } else if (q[7] == 1 && start + count <= BENCH_COILS) {
        const int bytes = (count + 7) / 8;
        out[n++] = (uint8_t)bytes;
        memset(out + n, 0, (size_t)bytes);
        for (int i = 0; i < count; ++i) out[n + i / 8] |= (uint8_t)(g_coils[start + i] << (i % 8));
        n += (size_t)bytes;
    } else if (q[7] == 16) {
        memcpy(out + n, q + 8, 4);
        n += 4;
    } else {
        out[7] |= 0x80;
        out[n++] = 1;
    }
    out[4] = (uint8_t)((n - 6) >> 8);
    out[5] = (uint8_t)((n - 6) & 0xFF);
    return n;
}

static int Server(const char* portFile, unsigned lifetime) {
    alarm(lifetime);
    for (int i = 0; i < BENCH_REGISTERS; ++i) g_registers[i] = (uint16_t)i;
    for (int i = 0; i < BENCH_COILS; ++i) g_coils[i] = (uint8_t)BenchCoil(i);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, (struct sockaddr*)&address, sizeof address) != 0 || listen(listener, 5) != 0) return 1;
    socklen_t size = sizeof address;
    getsockname(listener, (struct sockaddr*)&address, &size);
    char tmp[4096];
    snprintf(tmp, sizeof tmp, "%s.tmp", portFile);
    FILE* f = fopen(tmp, "w");
    if (f == NULL) return 1;
    fprintf(f, "%u\n", (unsigned)ntohs(address.sin_port));
    fclose(f);
    rename(tmp, portFile);
    for (;;) {
        const int s = accept(listener, NULL, NULL);
        if (s < 0) return 1;
        const int on = 1;
        setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        uint8_t in[1024], out[600];
        size_t have = 0;
        for (;;) {
            const ssize_t r = recv(s, in + have, sizeof in - have, 0);
            if (r < 1) break;
            have += (size_t)r;
            /* every complete frame in the buffer */
            size_t at = 0;
            while (have - at >= 6 && have - at >= 6u + (size_t)((in[at + 4] << 8) | in[at + 5])) {
                const size_t frame = 6u + (size_t)((in[at + 4] << 8) | in[at + 5]);
                const size_t n = Answer(in + at, out);
                if (send(s, out, n, MSG_NOSIGNAL) != (ssize_t)n) break;
                at += frame;
            }
            memmove(in, in + at, have - at);
            have -= at;
        }
        close(s);
    }
}

int main(int argc, char** argv) {
    if (argc == 6 && strcmp(argv[1], "client") == 0 && ParseBenchRequest(argv[5]) != kBadRequest) {
        return Client(argv[2], atoi(argv[3]), atof(argv[4]), ParseBenchRequest(argv[5]));
    }
    if (argc >= 3 && strcmp(argv[1], "server") == 0) {
        return Server(argv[2], argc > 3 ? (unsigned)atoi(argv[3]) : 120u);
    }
    fprintf(stderr, "usage: %s client HOST PORT SECONDS REQUEST | server PORTFILE [LIFETIME_SECONDS]\n", argv[0]);
    return 2;
}
