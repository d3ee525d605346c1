#include "platform/linux/base/LinkStatus.h"

LinkStatus operator-(const LinkStatus& a, const LinkStatus& b) {
    LinkStatus difference;
    difference.maxRoundTrip = a.maxRoundTrip - b.maxRoundTrip;
    difference.totalRoundTrip = a.totalRoundTrip - b.totalRoundTrip;
    difference.responseCount = a.responseCount - b.responseCount;
    return difference;
}
