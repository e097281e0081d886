/* Platform time conversion: seconds since the epoch into UTC calendar fields. */
#ifndef PLATFORM_TU_TIME_H_
#define PLATFORM_TU_TIME_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    int year;   /* e.g. 2024 */
    int month;  /* 1-12 */
    int day;    /* 1-31 */
    int hour;   /* 0-23 */
    int minute; /* 0-59 */
    int second; /* 0-60 */
    int weekday;
    int yearday;
} TU_PTTime;

/* Returns 0 on success; on failure a negative error code and *record is left as it was. */
int TU_GetPTTimeFromSec(TU_PTTime* record, unsigned long seconds);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_TU_TIME_H_ */
