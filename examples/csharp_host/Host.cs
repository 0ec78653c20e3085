// Runs one job from sign-in to its end, with the _Json functions. The exit status is 0 when the job finished.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… Host.exe [ACCOUNT]
//
// VELMORA_CA may name a file of certificate authorities to trust as well, such as that of a local portal.

using System;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;

static class Native
{
    const string Dll = "velmora"; // velmora.dll beside the program
    const CallingConvention C = CallingConvention.Cdecl;
    const UnmanagedType Utf8 = UnmanagedType.LPUTF8Str;
    const UnmanagedType Bool = UnmanagedType.I1; // one byte, where .NET would take four

    [UnmanagedFunctionPointer(C)]
    public delegate void Done([MarshalAs(Utf8)] string error);
    [UnmanagedFunctionPointer(C)]
    public delegate void Result([MarshalAs(Utf8)] string error, [MarshalAs(Utf8)] string result);
    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr CreateCloudAPI();
    [DllImport(Dll, CallingConvention = C)]
    public static extern void DestroyCloudAPI(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    [return: MarshalAs(Bool)]
    public static extern bool waitForEvents(IntPtr api, int milliseconds);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void setClientOptions_Json(IntPtr api, [MarshalAs(Utf8)] string options);
    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr lastNetworkError(IntPtr api); // the text stays the library's
    [DllImport(Dll, CallingConvention = C)]
    public static extern void logUserIn_Json(IntPtr api, [MarshalAs(Utf8)] string email,
                                             [MarshalAs(Utf8)] string password, [MarshalAs(Utf8)] string code,
                                             Done done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void generateNewJobID_Json(IntPtr api, [MarshalAs(Utf8)] string account, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void submitNewJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void followJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Done update, Result end);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void getJobFileList_Json(IntPtr api, [MarshalAs(Utf8)] string job,
                                                  [MarshalAs(Bool)] bool all, Result done);
}

class Host
{
    readonly IntPtr api = Native.CreateCloudAPI();
    readonly string account;
    string job;
    int exitCode = -1; // -1: still running

    // The library keeps bare pointers: were these not fields, the collector would take the delegates.
    readonly Native.Done signedIn, progressed;
    readonly Native.Result gotJobId, submitted, ended, gotFiles;

    Host(string account)
    {
        this.account = account;
        signedIn = OnSignedIn;
        gotJobId = OnJobId;
        submitted = OnSubmitted;
        progressed = Console.WriteLine;
        ended = OnEnd;
        gotFiles = OnFiles;
    }

    // An outcome is a JSON object: below 300 is success, 0 is no answer. An application of your own would use a
    // JSON library.
    bool Failed(string what, string error)
    {
        int code = int.Parse(Regex.Match(error, "\"errorCode\": (-?[0-9]+)").Groups[1].Value);
        if (code > 0 && code < 300)
            return false;
        Console.Error.WriteLine(what + " failed: " + (code == 0 ? Marshal.PtrToStringAnsi(Native.lastNetworkError(api)) : error));
        exitCode = 1;
        return true;
    }

    void OnSignedIn(string error)
    {
        if (!Failed("sign-in", error))
            Native.generateNewJobID_Json(api, account, gotJobId);
    }

    void OnJobId(string error, string id)
    {
        if (Failed("new job id", error))
            return;
        job = id;
        Native.submitNewJob_Json(api, "{\"jobID\": \"" + job + "\", \"accountID\": \"" + account + "\"," +
            "\"jobName\": \"Beam from C#\", \"mainFile\": \"beam.trninp\", \"solverTag\": \" \", \"operation\": 0," +
            "\"numberOfParts\": 4, \"ramEstimate\": 1024, \"coreHourEstimate\": 0.5, \"simulations\": [\"-x 1\"]," +
            "\"originApplication\": \"csharp_host\"}", submitted);
    }

    void OnSubmitted(string error, string details)
    {
        if (!Failed("submission", error))
            Native.followJob_Json(api, job, progressed, ended);
    }

    // Comes once. The job has finished, or the error says how else it ended.
    void OnEnd(string error, string details)
    {
        if (!Failed(job, error))
            Native.getJobFileList_Json(api, job, false, gotFiles);
    }

    void OnFiles(string error, string files)
    {
        if (Failed("list of files", error))
            return;
        Console.WriteLine(files);
        exitCode = 0;
    }

    int Run()
    {
        Func<string, string> variable = Environment.GetEnvironmentVariable;
        Native.setClientOptions_Json(api, "{\"robust\": true, \"caFile\": \"" + variable("VELMORA_CA") + "\"}");
        Native.logUserIn_Json(api, variable("VELMORA_USER"), variable("VELMORA_PASSWORD"), variable("VELMORA_MFA"),
                              signedIn);
        while (exitCode < 0)
            Native.waitForEvents(api, 1000); // every callback runs in here, on this thread
        Native.DestroyCloudAPI(api);
        return exitCode;
    }

    static int Main(string[] arguments)
    {
        return new Host(arguments.Length > 0 ? arguments[0] : "ACC-1001").Run();
    }
}
