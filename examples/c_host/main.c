/* Runs one job from sign-in to its end, in C11 with the `_Json` functions. The exit status is 0 when the job finished.
 *
 *     VELMORA_USER=… VELMORA_PASSWORD=… c_host [ACCOUNT]
 */

#include <velmora/CloudAPIFlat.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <threads.h>
#endif
#include <time.h>

enum { SECONDS_BETWEEN_LOOKS = 5, MOST_FAILED_LOOKS = 12 };

/* The functions take no pointer of the application's own for their callbacks: what those share is global. */
static VelmoraCloudAPI *api;
static const char *account = "ACC-1001";
static char job[64];
static time_t nextLook;   /* 0: there is nothing to look for */
static int failedLooks;   /* in a row */
static int exitCode = -1; /* -1: still running */

/* An outcome is a JSON object with a number "errorCode": below 300 is success, 0 is no answer. */
static long codeOf(const char *error)
{
    const char *key = strstr(error, "\"errorCode\":");
    return key ? strtol(key + strlen("\"errorCode\":"), NULL, 10) : 0;
}

static bool failed(const char *what, const char *error)
{
    const long code = codeOf(error);
    if (code > 0 && code < 300)
        return false;
    fprintf(stderr, "%s failed: %s\n", what, code == 0 ? "no answer came" : error);
    exitCode = EXIT_FAILURE;
    return true;
}

/* The newest entry of "jobStatus" in a job's details. An application of your own would use a JSON library. */
static void latestStatus(const char *details, char *status, size_t size)
{
    static const char text[] = "\"jobStatus\": \"", date[] = "\"jobStatusDate\": ";
    long long latest = -1;
    status[0] = '\0';
    for (const char *at = strstr(details, text); at; at = strstr(at, text)) {
        at += sizeof text - 1;
        const char *when = strstr(at, date);
        const long long milliseconds = when ? strtoll(when + sizeof date - 1, NULL, 10) : 0;
        if (milliseconds < latest)
            continue;
        latest = milliseconds;
        snprintf(status, size, "%.*s", (int)strcspn(at, "\""), at);
    }
}

static bool isFinal(const char *status)
{
    static const char *const ends[] = {"FINISHED", "FAILED", "STOPPED", "ABORTED", "KILLED", "ERROR", "ARCHIVED"};
    for (size_t i = 0; i < sizeof ends / sizeof *ends; ++i)
        if (strcmp(status, ends[i]) == 0)
            return true;
    return false;
}

static void pauseAMoment(void)
{
#ifdef _WIN32
    Sleep(2);
#else
    thrd_sleep(&(struct timespec){.tv_nsec = 2000000}, NULL);
#endif
}

static void onFiles(const char *error, const char *files)
{
    if (failed("list of files", error))
        return;
    printf("%s", files);
    exitCode = EXIT_SUCCESS;
}

/* Only a job's details say for certain that it has ended, and how. */
static void onDetails(const char *error, const char *details)
{
    char status[32];
    const long code = codeOf(error);
    if (nextLook == 0) /* an earlier look has found the end */
        return;
    if (code <= 0 || code >= 300) {
        if (++failedLooks >= MOST_FAILED_LOOKS)
            failed("job details", error);
        return;
    }
    failedLooks = 0;
    latestStatus(details, status, sizeof status);
    if (!isFinal(status))
        return;
    nextLook = 0;
    unsubscribeFromJob(api, job);
    if (strcmp(status, "FINISHED") == 0) {
        getJobFileList_Json(api, job, false, onFiles);
    } else {
        fprintf(stderr, "%s did not finish: its last status is %s\n", job, status);
        exitCode = EXIT_FAILURE;
    }
}

static void look(void)
{
    nextLook = time(NULL) + SECONDS_BETWEEN_LOOKS;
    getJobDetails_Json(api, job, onDetails);
}

/* Receives every message, also that of a job that failed or was stopped. */
static void onMessage(const char *error, const char *jobId, const char *message)
{
    (void)error;
    printf("%s: %s\n", jobId, message);
    if (strstr(message, "Job status is"))
        look();
}

/* Receives the message of a finished job, or that the connection was lost: the looks go on without messages. */
static void onFinished(const char *error, const char *jobId, const char *message)
{
    (void)error;
    printf("%s: %s\n", jobId, message);
    look();
}

static void onSubmitted(const char *error, const char *details)
{
    (void)details;
    if (failed("submission", error))
        return;
    subscribeToJob_Json(api, job, onMessage, onFinished);
    look();
}

static void onJobId(const char *error, const char *jobId)
{
    char definition[1024];
    if (failed("new job id", error))
        return;
    snprintf(job, sizeof job, "%s", jobId); /* its text is ours only until we return */
    snprintf(definition, sizeof definition,
             "{\"jobID\": \"%s\", \"accountID\": \"%s\", \"jobName\": \"Beam from C\", \"mainFile\": \"beam.trninp\","
             " \"solverTag\": \" \", \"operation\": 0, \"numberOfParts\": 4, \"ramEstimate\": 1024,"
             " \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\", \"-x 2\"], \"originApplication\": \"c_host\"}",
             job, account);
    submitNewJob_Json(api, definition, onSubmitted);
}

static void onSignedIn(const char *error)
{
    if (!failed("sign-in", error))
        generateNewJobID_Json(api, account, onJobId);
}

int main(int argc, char **argv)
{
    if (argc > 1)
        account = argv[1];
    api = CreateCloudAPI();
    logUserIn_Json(api, getenv("VELMORA_USER"), getenv("VELMORA_PASSWORD"), getenv("VELMORA_MFA"), onSignedIn);
    while (exitCode < 0) {
        processEvents(api); /* every callback runs in here */
        if (nextLook != 0 && time(NULL) >= nextLook)
            look();
        pauseAMoment();
    }
    DestroyCloudAPI(api);
    return exitCode;
}
