#include "discovery/StatusTexts.h"

#include "include/hbadiscovery.h"
#include "rmapi/rmapi.h"

const char* LinkText(unsigned int linkStatus) {
  if (linkStatus == HBADISC_LINK_OVER_TEMPERATURE) return "overheated";
  const bool functionIsDown = ((linkStatus >> 8) & 0xFF) == 2;
  switch (linkStatus & 0xFF) {
    case 1:
      return functionIsDown ? "up, function down" : "up";
    case 2:
      return "down";
    default:
      return "not read";
  }
}

const char* StatusText(int status) {
  switch (status) {
    case HBADISC_STATUS_WAITING:
      return "no answer yet";
    case HBADISC_STATUS_NOT_ASKED:
      return "not asked yet";
    case RM_STATUS_OK:
      return "answers";
    case RM_STATUS_FAILED:
      return "cannot be read";
    case RM_STATUS_NOT_SUPPORTED:
      return "not supported";
    case RM_STATUS_BUFFER_TOO_SMALL:
    case RM_STATUS_MORE_DATA:
      return "tells more than there is room for";
    case RM_STATUS_LOCKED:
      return "in use";
    case RM_STATUS_NOT_FOUND:
      return "not found";
    case RM_STATUS_OVER_TEMPERATURE:
      return "overheated";
    case RM_STATUS_TRY_AGAIN:
      return "not ready";
    case RM_STATUS_HOST_UNUSABLE:
      return "its host cannot be used";
    case RM_STATUS_BUSY:
      return "busy";
    default:
      return "cannot be read (see the number of the status)";
  }
}

const char* HostStateText(unsigned int state) {
  switch (state) {
    case HBADISC_HOST_NOT_ASKED:
      return "not asked yet";
    case HBADISC_HOST_ASKED:
      return "no answer yet";
    case HBADISC_HOST_ANSWERED:
      return "answered";
    case HBADISC_HOST_REFUSED:
      return "refused";
    case HBADISC_HOST_TIMED_OUT:
      return "timed out";
    case HBADISC_HOST_BUSY:
      return "busy";
    case HBADISC_HOST_NOT_A_HOST:
      return "not a host";
    case HBADISC_HOST_IS_THIS:
      return "this host";
    case HBADISC_HOST_NO_PORTS:
      return "answered, has no ports";
    default:
      return "unknown";
  }
}
