/* Runs one job from sign-in to its finish, in C11 with the `_Json` functions.
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
#include <time.h>
#endif

/* The functions take no pointer of the host's own for their callbacks: what those share is global. */
static VelmoraCloudAPI *api;
static const char *account = "ACC-1001";
static char job[64];
static int exitCode = -1; /* -1: still running */

/* An outcome is a JSON object with a number "errorCode": below 300 is success, 0 is no answer. */
static bool failed(const char *what, const char *error)
{
    const char *key = strstr(error, "\"errorCode\":");
    const long code = key ? strtol(key + strlen("\"errorCode\":"), NULL, 10) : 0;
    if (code > 0 && code < 300)
        return false;
    fprintf(stderr, "%s failed: %s\n", what, code == 0 ? "no answer came" : error);
    exitCode = EXIT_FAILURE;
    return true;
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

static void onMessage(const char *error, const char *jobId, const char *message)
{
    (void)error;
    printf("%s: %s\n", jobId, message);
}

static void onFinished(const char *error, const char *jobId, const char *message)
{
    if (failed("following the job", error))
        return;
    printf("%s: %s\n", jobId, message);
    getJobFileList_Json(api, jobId, false, onFiles);
}

static void onSubmitted(const char *error, const char *details)
{
    (void)details;
    if (!failed("submission", error))
        subscribeToJob_Json(api, job, onMessage, onFinished);
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
        pauseAMoment();
    }
    DestroyCloudAPI(api);
    return exitCode;
}
