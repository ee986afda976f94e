#include "printserver/course.h"

namespace printserver {

Lpq Course::RecordAt(const Progress& progress) const
{
    if (byHand)
        return *byHand;
    const auto passed = perPosition.count() > 0 ? progress.sinceStart / perPosition : queue;
    if (passed < queue)
        return {static_cast<int>(queue - passed), kWaiting, kPrintingCard, printerState};

    const auto bound = [this](int state) { return Lpq(0, state, state, printerState); };
    if (cancelAfterBytes && progress.received >= *cancelAfterBytes)
        return bound(kCancelled);
    if (!progress.sinceEnd)
        return bound(kReceivingData);
    if (*progress.sinceEnd < cardWait)
        return bound(kWaitingForCard);
    if (!end || *progress.sinceEnd < cardWait + printing)
        return bound(kPrintingCard);
    return bound(*end);
}

}  // namespace printserver
