#include "support/servers/TestCertificates.h"

#include <QSslCertificate>

#include <stdexcept>

#include <windows.h>

#include <wincrypt.h>

namespace mediaworker::test {
namespace {

/// The authorities that the user trusts. What is changed here is seen by other programs when this goes, and
/// not before.
class TrustedAuthorities {
public:
    TrustedAuthorities() : store_(CertOpenSystemStoreW(0, L"ROOT")) {}
    TrustedAuthorities(const TrustedAuthorities&) = delete;
    TrustedAuthorities& operator=(const TrustedAuthorities&) = delete;
    ~TrustedAuthorities() {
        CertControlStore(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr);
        CertCloseStore(store_, 0);
    }

    [[nodiscard]] bool add(PCCERT_CONTEXT certificate) {
        return CertAddCertificateContextToStore(store_, certificate, CERT_STORE_ADD_ALWAYS, nullptr) != 0;
    }
    void remove(PCCERT_CONTEXT certificate) {
        PCCERT_CONTEXT found = CertFindCertificateInStore(store_, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING,
                                                          certificate, nullptr);
        if (found != nullptr) {
            CertDeleteCertificateFromStore(found); // frees it, too
        }
    }

private:
    HCERTSTORE store_;
};

} // namespace

struct PrivateCertificates::State {
    PCCERT_CONTEXT authority = nullptr;
    bool isTrusted = false;
};

PrivateCertificates::PrivateCertificates(const TestCertificates& certificates)
    : state_(std::make_unique<State>()) {
    const QString file = QString::fromStdString(certificates.authorityFile().string());
    const QByteArray der = QSslCertificate::fromPath(file).value(0).toDer();
    state_->authority = CertCreateCertificateContext(
        X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.constData()), static_cast<DWORD>(der.size()));
    if (state_->authority == nullptr) {
        throw std::runtime_error("no certificate: " + certificates.authorityFile().string());
    }
}

PrivateCertificates::~PrivateCertificates() {
    if (state_->isTrusted) {
        TrustedAuthorities().remove(state_->authority);
    }
    CertFreeCertificateContext(state_->authority);
}

std::vector<std::string> PrivateCertificates::commandPrefix() const {
    if (!state_->isTrusted) {
        if (!TrustedAuthorities().add(state_->authority)) {
            throw std::runtime_error("the authority cannot be added: error " +
                                     std::to_string(GetLastError()));
        }
        state_->isTrusted = true;
    }
    return {};
}

std::optional<std::string> PrivateCertificates::obstacle() const {
    return std::nullopt;
}

} // namespace mediaworker::test
