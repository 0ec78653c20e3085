"""What goes wrong."""

from .records import JobDetails


class VelmoraError(Exception):
    """An operation that did not succeed.

    code: the status of the service's answer, 300 or more. 400 also for what the library refuses, for a transfer that
        broke and for a job that did not finish. 0: no whole answer came.
    title: the operation that failed; empty with code 0
    message: why, for people: the explanation of the service or the library. With code 0 the reason of the network.
    """

    def __init__(self, code: int, title: str, message: str) -> None:
        self.code, self.title, self.message = code, title, message
        super().__init__(code, title, message)

    def __str__(self) -> str:
        return f"{self.title}: {self.message} ({self.code})" if self.title else self.message


class JobEnded(VelmoraError):
    """A followed job that failed, was stopped or was archived; the title says which.

    job: the job as it was after its end
    """

    def __init__(self, code: int, title: str, message: str, job: JobDetails) -> None:
        super().__init__(code, title, message)
        self.args = (code, title, message, job)
        self.job = job


class SessionClosed(VelmoraError):
    """The session was closed before the operation had completed."""

    def __init__(self) -> None:
        VelmoraError.__init__(self, 400, "Session Closed", "The session is closed")
        self.args = ()
