/* What the open provider offers beyond rmapi.h: the process may say what it looks at before RM_InitLib.
 *
 * These are extensions. A program that wants to run with any provider looks them up with
 * dlsym(RTLD_DEFAULT, ...) and does without when they are missing.
 */
#ifndef PROVIDER_OPENPROVIDER_H_
#define PROVIDER_OPENPROVIDER_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Chooses the source for this process, in place of the configuration file: kind "fabric" with the path of a
 * fabric file, or "sysfs" with the sysfs root ("/sys"). The source is loaded and checked at once. 0, or 1 with
 * a reason in RMOpen_LastError. To be called before RM_InitLib. */
int RMOpen_SetSource(const char* kind, const char* path);

/* Copies why the last RMOpen_SetSource of this thread failed, or else why RM_InitLib found nothing to look at;
 * "" when neither did. At most size - 1 characters and a NUL. */
void RMOpen_LastError(char* text, unsigned int size);

/* The directory that RM_GetAppInstallDirA tells, where the files of remote hosts lie, in place of the
 * configuration file's. 0, or 1 when it is no directory. To be called before RM_InitLib. */
int RMOpen_SetInstallDir(const char* directory);

/* 1: RM_GetDiscoveryAttributes has the attributes that tell more of a port than rmapi.h asks for (speeds,
 * versions, PCI address and so on), of this host's ports, too. The discovery library then asks those for them.
 */
int RMOpen_HasPortDetails(void);

/* A look at this host begins, and has ended: between the two calls a question that was answered may be answered
 * again from what was read. The discovery library says so of its cycles. They do not nest. */
void RMOpen_BeginLook(void);
void RMOpen_EndLook(void);

#ifdef __cplusplus
}
#endif

#endif /* PROVIDER_OPENPROVIDER_H_ */
