// Runs one job from sign-in to its finish, with the _Json functions.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… Host.exe [ACCOUNT]

using System;
using System.Runtime.InteropServices;
using System.Threading;

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
    [UnmanagedFunctionPointer(C)]
    public delegate void Message([MarshalAs(Utf8)] string error, [MarshalAs(Utf8)] string job,
                                 [MarshalAs(Utf8)] string message);

    [DllImport(Dll, CallingConvention = C)]
    public static extern IntPtr CreateCloudAPI();
    [DllImport(Dll, CallingConvention = C)]
    public static extern void DestroyCloudAPI(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void processEvents(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    [return: MarshalAs(Bool)]
    public static extern bool isUserLoggedIn(IntPtr api);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void logUserIn_Json(IntPtr api, [MarshalAs(Utf8)] string email,
                                             [MarshalAs(Utf8)] string password, [MarshalAs(Utf8)] string code,
                                             Done done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void generateNewJobID_Json(IntPtr api, [MarshalAs(Utf8)] string account, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void submitNewJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Result done);
    [DllImport(Dll, CallingConvention = C)]
    public static extern void subscribeToJob_Json(IntPtr api, [MarshalAs(Utf8)] string job, Message message,
                                                  Message finished);
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
    readonly Native.Done signedIn;
    readonly Native.Result gotJobId, submitted, gotFiles;
    readonly Native.Message said, finished;

    Host(string account)
    {
        this.account = account;
        signedIn = OnSignedIn;
        gotJobId = OnJobId;
        submitted = OnSubmitted;
        said = OnMessage;
        finished = OnFinished;
        gotFiles = OnFiles;
    }

    // An outcome is a JSON object: below 300 is success, 0 is no answer. Real programs take a JSON library.
    bool Failed(string what, string error)
    {
        const string key = "\"errorCode\": ";
        int start = error.IndexOf(key, StringComparison.Ordinal) + key.Length;
        int code = int.Parse(error.Substring(start, error.IndexOfAny(new[] {',', '\n', '}'}, start) - start));
        if (code > 0 && code < 300)
            return false;
        Console.Error.WriteLine(what + " failed: " + (code == 0 ? "no answer came" : error));
        exitCode = 1;
        return true;
    }

    void OnSignedIn(string error)
    {
        if (!Failed("sign-in", error) && Native.isUserLoggedIn(api))
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
            Native.subscribeToJob_Json(api, job, said, finished);
    }

    void OnMessage(string error, string id, string message)
    {
        Console.WriteLine(id + ": " + message);
    }

    void OnFinished(string error, string id, string message)
    {
        if (Failed("following the job", error))
            return;
        Console.WriteLine(id + ": " + message);
        Native.getJobFileList_Json(api, id, false, gotFiles);
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
        Native.logUserIn_Json(api, variable("VELMORA_USER"), variable("VELMORA_PASSWORD"), variable("VELMORA_MFA"),
                              signedIn);
        while (exitCode < 0)
        {
            Native.processEvents(api); // every callback runs in here, on this thread
            Thread.Sleep(2);
        }
        Native.DestroyCloudAPI(api);
        return exitCode;
    }

    static int Main(string[] arguments)
    {
        return new Host(arguments.Length > 0 ? arguments[0] : "ACC-1001").Run();
    }
}
