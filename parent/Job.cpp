#include "parent/Job.h"

namespace mediaworker::parent {

namespace {

QString flvOption(FlvReading reading) {
    return reading == FlvReading::Strict ? QStringLiteral("flv=strict") : QStringLiteral("flv=standard");
}

QString sandboxOption(bool isConfined) {
    return isConfined ? QStringLiteral(",sandbox=on") : QStringLiteral(",sandbox=off");
}

} // namespace

QString optionsOf(const StreamJob& job) {
    return flvOption(job.flv) +
           (job.lowLatency ? QStringLiteral(",buffering=off") : QStringLiteral(",buffering=on")) +
           (job.sync ? QStringLiteral(",sync=on") : QStringLiteral(",sync=off")) + sandboxOption(job.sandbox);
}

QString optionsOf(const ExportJob& job) {
    return flvOption(job.flv) +
           (job.exactLength ? QStringLiteral(",length=exact") : QStringLiteral(",length=expected")) +
           sandboxOption(job.sandbox) +
           (job.crashSafe ? QStringLiteral(",mp4=safe") : QStringLiteral(",mp4=plain"));
}

} // namespace mediaworker::parent
