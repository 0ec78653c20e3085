"""The library for Python, over its flat functions; the standard library only.

    with Session() as session:
        session.sign_in(user, password)
        job = session.new_job_id(account)

Each method waits for its answer and returns it, or raises Failure.
"""

import ctypes
import json
import os

TEXT = ctypes.CFUNCTYPE(None, ctypes.c_char_p)
RESULT = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p)
PROGRESS = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_int32)

FUNCTIONS = {  # what follows the handle; the result
    "DestroyCloudAPI": ([], None),
    "waitForEvents": ([ctypes.c_int], ctypes.c_bool),
    "lastNetworkError": ([], ctypes.c_char_p),
    "setClientOptions_Json": ([ctypes.c_char_p], None),
    "logUserIn_Json": ([ctypes.c_char_p] * 3 + [TEXT], None),
    "generateNewJobID_Json": ([ctypes.c_char_p, RESULT], None),
    "submitNewJob_Json": ([ctypes.c_char_p, RESULT], None),
    "followJob_Json": ([ctypes.c_char_p, TEXT, RESULT], None),
    "getJobFileList_Json": ([ctypes.c_char_p, ctypes.c_bool, RESULT], None),
    "uploadFile_Json": ([ctypes.c_char_p, PROGRESS, RESULT], None),
    "downloadFile_Json": ([ctypes.c_char_p, PROGRESS, RESULT], None),
}


class Failure(Exception):
    """An operation that did not succeed, or a job that did not finish; `code` 0 says that no answer came."""

    def __init__(self, error, reason):
        self.code = error["errorCode"]
        super().__init__(f'{error["errorTitle"]}: {error["errorMessage"]} ({self.code})' if self.code else reason)


class Session:
    def __init__(self, library=None, ca_file=None):
        """ca_file names certificate authorities to trust as well, such as that of a local portal."""
        self._library = ctypes.CDLL(library or os.environ.get("VELMORA_LIBRARY", "libvelmora.so.1"))
        self._library.CreateCloudAPI.restype = ctypes.c_void_p
        for name, (arguments, result) in FUNCTIONS.items():
            function = getattr(self._library, name)
            function.argtypes = [ctypes.c_void_p] + arguments
            function.restype = result
        self._api = self._library.CreateCloudAPI()
        options = {"robust": True, "caFile": ca_file or os.environ.get("VELMORA_CA", "")}
        self._library.setClientOptions_Json(self._api, json.dumps(options).encode())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._library.DestroyCloudAPI(self._api)  # no callback runs any more
        self._api = None

    def sign_in(self, user, password, code=""):
        self._wait("logUserIn_Json", user, password, code, done=TEXT)

    def new_job_id(self, account):
        return self._wait("generateNewJobID_Json", account)

    def submit(self, definition):
        return json.loads(self._wait("submitNewJob_Json", json.dumps(definition)))

    def files(self, job, everything=False):
        return json.loads(self._wait("getJobFileList_Json", job, everything))["fileList"]

    def upload(self, path, job, on_progress=lambda sent: None):
        file = {"localFileLocation": os.path.abspath(path), "cloudFileJobID": job}
        self._wait("uploadFile_Json", json.dumps(file), PROGRESS(lambda _, sent: on_progress(sent)))

    def download(self, job, name, path, on_progress=lambda received: None):
        file = {"localFileLocation": os.path.abspath(path), "cloudFileDetails": {"jobId": job, "fileName": name}}
        self._wait("downloadFile_Json", json.dumps(file), PROGRESS(lambda _, received: on_progress(received)))

    def follow(self, job, on_progress):
        """Calls on_progress with the progress of the job's simulations until it has ended; raises unless it finished."""
        self._wait("followJob_Json", job,
                   TEXT(lambda progress: on_progress(json.loads(progress)["simulationProgressList"])))

    def _wait(self, name, *arguments, done=RESULT):
        answers = []

        def on_complete(*texts):  # the texts are ours only until this returns; ctypes has copied them
            answers.append([text.decode() for text in texts])

        # ctypes lets go of a callback with its last reference: these outlive the call.
        callbacks = [done(on_complete)]
        texts = [value.encode() if isinstance(value, str) else value for value in arguments]
        getattr(self._library, name)(self._api, *texts, *callbacks)
        while not answers:
            self._library.waitForEvents(self._api, 200)  # every callback runs in here
        error = json.loads(answers[0][0])
        if not 0 < error["errorCode"] < 300:
            raise Failure(error, self._library.lastNetworkError(self._api).decode())
        return answers[0][-1]
