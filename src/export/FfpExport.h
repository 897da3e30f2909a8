#pragma once

#include "net/HTTPClient.h"
#include "record/ExportProgress.h"
#include "record/FileRecorder.h"
#include "records/Options.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>
#include <optional>

namespace Corvane::Ipc {
class SocketHandler;
struct Message;
} // namespace Corvane::Ipc

/// Records one stream into a file, tells the parent how far it is, and ends the process: with 0 when the file
/// is complete, else with 1. Lives as long as the process, on the main thread.
class FfpExport final : public QObject {
    Q_OBJECT

public:
    /// Starts the request, to which the event loop brings the answer. `durationMs` is the length that is
    /// expected. Ends the process where the file name is no good.
    FfpExport(const QString& url, const QString& outputPath, int durationMs, const QString& serverName,
              const ko_player::Options& options = {});
    FfpExport(const FfpExport&) = delete;
    FfpExport& operator=(const FfpExport&) = delete;
    ~FfpExport() override;

private:
    void onData(const QByteArray& bytes);
    void onFinished();
    void keepUp();
    /// What was good is kept, and the process ends with 1.
    void giveUp();
    /// Closes the file and ends.
    void finish();
    void onMessage(const Corvane::Ipc::Message& message);
    void tell(std::optional<int> percent);
    /// The parent is gone.
    void endAlone();
    void connectLink(const QString& serverName);
    /// Ends the process as soon as the event loop is reached and the link has written what was sent; nothing
    /// is heard until then.
    void end(int code);

    ko_player::ExportProgress progress_;
    std::unique_ptr<ko_player::FileRecorder> recorder_;
    std::optional<CorvaneClient::Net::HTTPClient> reader_;
    Corvane::Ipc::SocketHandler* link_ = nullptr; ///< a child of this object
    QTimer keepUpTimer_;                          ///< only for a file that can be lost
    const bool explains_;                         ///< see ko_player::Options
    bool ending_ = false;
};
