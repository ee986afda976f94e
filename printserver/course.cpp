#include "printserver/course.h"

namespace printserver {

Lpq Course::RecordAt(const Progress& progress) const
{
    if (byHand)
        return *byHand;
    const auto bound = [this](int state) { return Lpq(0, state, state, printerState); };
    if (progress.cancelled)
        return bound(kCancelled);
    const auto passed = perPosition.count() > 0 ? progress.sinceStart / perPosition : queue;
    if (passed < queue)
        return {static_cast<int>(queue - passed), kWaiting, kPrintingCard, printerState};
    if (cancelAfterBytes && progress.received >= *cancelAfterBytes)
        return bound(kCancelled);
    if (!progress.sinceEnd)
        return bound(kReceivingData);
    const bool hasCard = progress.received > 0;
    if (hasCard && *progress.sinceEnd < cardWait)
        return bound(kWaitingForCard);
    if (!end || (hasCard && *progress.sinceEnd < cardWait + printing))
        return bound(kPrintingCard);
    return bound(*end);
}

}  // namespace printserver
