#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <memory>

namespace mediaworker {

/// Hears when the user wants this program to end: Ctrl-C, and what else ends programs in an orderly way. One
/// at a time; belongs to the main thread.
class Interruption : public QObject {
    Q_OBJECT

public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption() override;

    /// Ctrl-C goes to all processes of a terminal. Those that are started while an object of this class lives
    /// do not hear it: they are ended in our own way.
    class Shield {
    public:
        Shield();
        Shield(const Shield&) = delete;
        Shield& operator=(const Shield&) = delete;
        ~Shield();

    private:
        struct State;
        std::unique_ptr<State> state_;
    };

Q_SIGNALS:
    /// Once for what comes in the same moment.
    void requested();

private:
    Q_SLOT void hear();

    struct Platform;
    QElapsedTimer heard_; ///< since the last request
    std::unique_ptr<Platform> platform_;
};

} // namespace mediaworker
