#include "support/ChildProcess.h"
#include "support/servers/TestCertificates.h"
#include "support/servers/TlsTermination.h"
#include "support/servers/Transport.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <chrono>
#include <optional>
#include <stdexcept>

namespace mediaworker::test {
namespace {

constexpr int kStartMs = 20'000;
constexpr std::chrono::seconds kEnd{10};

} // namespace

struct TlsTermination::State {
    const TestCertificates& certificates;
    TemporaryFolder folder;
    std::optional<ChildProcess> front; ///< ends with its connection to us
    std::unique_ptr<QTcpSocket> connection;
};

TlsTermination::TlsTermination(const TestCertificates& certificates)
    : state_(new State{certificates, {}, {}, {}}) {}

TlsTermination::~TlsTermination() {
    state_->connection.reset();
    if (state_->front) {
        state_->front->waitFor(kEnd);
    }
}

std::uint16_t TlsTermination::portInFrontOf(std::uint16_t serverPort) {
    QTcpServer control;
    if (!control.listen(QHostAddress::LocalHost)) {
        throw std::runtime_error("no free port");
    }
    // The server shows its authority as well, since Wine does not look for it among those that Qt gives it.
    const TestCertificates& certificates = state_->certificates;
    const std::filesystem::path chain = state_->folder / "chain.pem";
    writeFile(chain, readFile(certificates.certificateFile()) + readFile(certificates.authorityFile()));
    const std::filesystem::path errors = state_->folder / "errors";
    state_->front.emplace(ChildProcess::Options{
        .command = {"python3", MEDIAWORKER_TEST_TLS_FRONT, chain.string(), certificates.keyFile().string(),
                    std::to_string(serverPort), std::to_string(control.serverPort())},
        .errors = errors});
    if (control.waitForNewConnection(kStartMs)) {
        state_->connection.reset(control.nextPendingConnection());
        state_->connection->setParent(nullptr); // it stays when the listener goes
        while (!state_->connection->canReadLine() && state_->connection->waitForReadyRead(kStartMs)) {
        }
    }
    const int port = state_->connection ? state_->connection->readLine().trimmed().toInt() : 0;
    if (port == 0) {
        throw std::runtime_error("TLS cannot be ended in front of the server: " + readFile(errors));
    }
    return static_cast<std::uint16_t>(port);
}

std::unique_ptr<Transport> TlsTermination::accept(int socket) const {
    return plainTransport(socket);
}

} // namespace mediaworker::test
