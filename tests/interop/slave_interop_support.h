#pragma once
// Starts `kestrel-cli slave` for the interop tests, over TCP on an ephemeral loopback port or over
// RTU on one end of a socat pty pair (the peer gets the other end), and stops both at the end.
// Every peer sees the same seeded image: holding registers 0..2 = 11, 22, 33, coils 0..2 = 1, 0, 1,
// and exception 4 injected for start addresses 100..199.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "slave/slave_process.h"
#include "slave/slave_test_support.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace slavetest {

enum class Transport { Tcp, Rtu };

inline std::string TransportName(const testing::TestParamInfo<Transport>& info) {
    return info.param == Transport::Tcp ? "Tcp" : "Rtu";
}

class KestrelSlave {
public:
    explicit KestrelSlave(Transport transport) : transport_(transport), dir_(MakeTempDir()) {
        std::vector<std::string> argv = {KESTREL_CLI_PATH, "--lang", "en", "slave"};
        if (transport == Transport::Rtu) {
            socat_ = std::make_unique<BackgroundProcess>(std::vector<std::string>{
                "timeout", "300", "socat", "pty,raw,echo=0,link=" + dir_ + "/ttyA", "pty,raw,echo=0,link=" + dir_ + "/ttyB"});
            if (!WaitForPath(dir_ + "/ttyA", 5000) || !WaitForPath(dir_ + "/ttyB", 5000)) return;
            argv.insert(argv.end(), {"--rtu", dir_ + "/ttyA", "--baud", "19200"});
        } else {
            argv.insert(argv.end(), {"--tcp-port", "0"});
        }
        argv.insert(argv.end(), {"--holding", "0=11,22,33", "--coils", "0=1,0,1", "--inject", "4:100-199", "--duration", "240"});
        slave_ = std::make_unique<ChildProcess>(argv);
        if (transport == Transport::Tcp) {
            port_ = AnnouncedPort(*slave_);
            ready_ = port_ != 0;
        } else {
            ready_ = slave_->WaitForOutput("Slave RTU thread started.\n", 5000);
        }
    }

    ~KestrelSlave() {
        // The slave goes first, then the pty pair it has open.
        slave_.reset();
        socat_.reset();
        RunCommand({"rm", "-rf", dir_}, 5000);
    }

    bool Ready() const { return ready_; }
    uint16_t Port() const { return port_; }
    std::string PeerDevice() const { return dir_ + "/ttyB"; }
    ChildProcess& Process() { return *slave_; }

    // Stops the slave like a user would (SIGTERM) and returns its exit code.
    int Stop() { return slave_ ? (slave_->Signal(SIGTERM), slave_->Wait(8000)) : -1; }
    std::string Output() const { return slave_ ? slave_->Stdout() : ""; }

    // Waits until the slave logged `line` (a whole line).
    bool Logged(const std::string& line, int timeoutMs = 3000) const {
        return slave_ && slave_->WaitForOutput(line + "\n", timeoutMs);
    }

private:
    Transport transport_;
    std::string dir_;
    std::unique_ptr<BackgroundProcess> socat_;
    std::unique_ptr<ChildProcess> slave_;
    uint16_t port_ = 0;
    bool ready_ = false;
};

inline std::vector<std::string> OutputLines(const std::string& text) { return SplitLines(text); }

}  // namespace slavetest
