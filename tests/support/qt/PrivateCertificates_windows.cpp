#include "support/qt/TestCertificates.h"

#include <QSslCertificate>

#include <stdexcept>

#include <windows.h>

#include <wincrypt.h>

namespace mediaworker::test {

struct PrivateCertificates::State {
    QByteArray authority; ///< DER
    HCERTSTORE store = nullptr;
    PCCERT_CONTEXT trusted = nullptr;
};

PrivateCertificates::PrivateCertificates(const TestCertificates& certificates)
    : state_(std::make_unique<State>()) {
    const QString file = QString::fromStdString(certificates.authorityFile().string());
    state_->authority = QSslCertificate::fromPath(file).value(0).toDer();
}

PrivateCertificates::~PrivateCertificates() {
    if (state_->trusted != nullptr) {
        CertDeleteCertificateFromStore(state_->trusted); // frees it, too
    }
    if (state_->store != nullptr) {
        CertCloseStore(state_->store, 0);
    }
}

std::vector<std::string> PrivateCertificates::commandPrefix() const {
    if (state_->store == nullptr) {
        state_->store = CertOpenSystemStoreW(0, L"ROOT");
        if (CertAddEncodedCertificateToStore(state_->store, X509_ASN_ENCODING,
                                             reinterpret_cast<const BYTE*>(state_->authority.constData()),
                                             static_cast<DWORD>(state_->authority.size()),
                                             CERT_STORE_ADD_ALWAYS, &state_->trusted) == 0) {
            throw std::runtime_error("the authority cannot be added: error " +
                                     std::to_string(GetLastError()));
        }
    }
    return {};
}

std::optional<std::string> PrivateCertificates::obstacle() const {
    return std::nullopt;
}

} // namespace mediaworker::test
