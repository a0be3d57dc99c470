/* Prints the adapter ports of this host:  cc list_ports.c -lhbadiscovery */
#include <hbadiscovery.h>
#include <semaphore.h>
#include <stdio.h>

static void OnCallBack(unsigned int reason, void* context) {
  if (reason & HBADISC_REASON_FORCED) sem_post(context); /* the first cycle has ended */
}

static void Print(const hba_discovery_info* info) {
  const hba_port_info* port = &info->port;
  for (int i = 0; i < 8; ++i) printf("%s%02x", i ? ":" : "", port->portWwn[i]);
  /* Texts are not terminated when they fill their field. */
  printf("  %-16.80s  link %-4s  %u targets\n", port->model, (info->linkStatus & 0xFF) == 1 ? "up" : "down",
         info->targetCount);
}

int main(void) {
  sem_t firstCycle;
  sem_init(&firstCycle, 0, 0);
  HBADisc_RegisterCallBack(OnCallBack, HBADISC_EVENT_FORCED, &firstCycle);
  HBADisc_StartupEx(0, HBADISC_NO_OOB_DISCOVERY, 1); /* one cycle, this host only */
  while (sem_wait(&firstCycle) != 0) continue;       /* a signal cut the wait short */

  hba_discovery_info port;
  for (int more = HBADisc_GetFirstHba(&port); more; more = HBADisc_GetNextHba(&port)) Print(&port);

  HBADisc_Terminate();
  return 0;
}
