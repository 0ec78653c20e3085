"""The records that cross the library's boundary. generate.py makes this from the library's headers."""

from dataclasses import dataclass, field
from enum import IntEnum
from typing import ClassVar, Mapping

from ._record import Record

__all__ = [
    "AccountAccess", "AccountBalance", "AccountDetails", "AccountTransaction", "ClientOptions", "CloudFile",
    "FileUploadDetails", "HpcDetails", "ItemTag", "JobDetails", "JobOperation", "JobProgress", "JobStatusEntry",
    "JobSubmit", "PortalTarget", "ProxyDefinition", "SessionChange", "SimulationAbortState", "SimulationDetails",
    "SimulationProgress", "SimulationStatusEntry", "UserDetails",
]


class PortalTarget(IntEnum):
    """The portals of the service. With any other value every request fails, unless the environment variable
    VELMORA_API_URL names a host."""

    TEST = 0
    DEVELOPMENT = 1
    PRODUCTION = 2


class JobOperation(IntEnum):
    """What a job does.

    MPI: one solver run over several processes
    SIMULATION: one process per simulation
    """

    MPI = 0
    SIMULATION = 1
    REVIEW = 2
    BUILD = 3


class SessionChange(IntEnum):
    """What happened to the session's token.

    SIGNED_IN: by `Session.sign_in` or `Session.resume`
    RENEWED: a new token has replaced one that was about to expire
    RENEWAL_FAILED: There is no token any more, because the service refused to renew it, or did not answer. Nothing more
        is tried: sign in again. With `ClientOptions.keep_alive` only a refusal leads to this.
    SIGNED_OUT: by `Session.sign_out`, or because the next sign-in began
    """

    SIGNED_IN = 0
    RENEWED = 1
    RENEWAL_FAILED = 2
    SIGNED_OUT = 3


@dataclass(kw_only=True)
class ClientOptions(Record):
    """How a session deals with bad networks and long runs. A default one changes nothing: no request is repeated, and
    none has a time limit. Negative numbers count as 0.

    keep_alive: A renewal of the token that gets no answer, none with a token, or one with a status of 500 or more, is
        tried again after 1, 2, 4 … 30 s, until it succeeds, is refused, or the user signs out. Requests and
        subscriptions that are made during a renewal wait for it and go out with its token, in their order. They go out
        without one when it is refused, and when the user signs out. A token that lives 5 s or less is renewed after
        half of its time.
    answer_timeout: Seconds that a request may go without a byte of its answer, 0 for ever. Then it ends with code 0,
        and so does a request that waits for a renewal, once three tries of that have failed. A renewal that is to be
        tried again counts as unanswered after a minute where this is 0. It does not apply to transfers. The time that
        the owner's thread is busy does not count.
    stall_timeout: Seconds that a transfer may go without a byte sent or received, 0 for ever. Then it breaks. To wait
        for its turn, for the local disk or because of a limit does not count.
    transfer_retries: How often a transfer that broke goes on, for each file or piece of a file. The pauses are 1, 2, 4
        … s. A download goes on where it broke, if the storage can do that and still has the same file. An upload starts
        again. An address that the storage refuses is asked for anew, and counts as one that broke; so do the statuses
        408, 429 and 500 or more, also of the request for a key or an address. Other refusals, a local file that changed
        or cannot be written, and certificates that are not trusted end the transfer at once.
    upload_bytes_per_second: Bytes per second that all uploads of the session together may send, 0 for no limit.
    download_bytes_per_second: Bytes per second that all downloads of the session together may receive, 0 for no limit.
    connections_per_host: Transfers to one storage server, and as many from it, that may move bytes at a time, 0 for the
        library's choice. One that only waits for the server does not count.
    ca_file: A file of certificate authorities in PEM form that are trusted besides those of the system, for requests,
        transfers and subscriptions (which accept any certificate, with this or without). Its path is UTF-8. Empty for
        none. It is read by `Session`, and for transfers when one starts. While it cannot be read, or holds no
        certificate, transfers fail and requests are not sent: they end with code 0, and `VelmoraError.message` names
        the file.
    """

    keep_alive: bool = False
    answer_timeout: int = 0
    stall_timeout: int = 0
    transfer_retries: int = 0
    upload_bytes_per_second: int = 0
    download_bytes_per_second: int = 0
    connections_per_host: int = 0
    ca_file: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "keep_alive": "keepAlive",
        "answer_timeout": "answerTimeout",
        "stall_timeout": "stallTimeout",
        "transfer_retries": "transferRetries",
        "upload_bytes_per_second": "uploadBytesPerSecond",
        "download_bytes_per_second": "downloadBytesPerSecond",
        "connections_per_host": "connectionsPerHost",
        "ca_file": "caFile",
    }

    @classmethod
    def robust(cls) -> "ClientOptions":
        """What suits an application that has nothing better to do about a failure than to try again."""
        return cls(keep_alive=True, answer_timeout=120, stall_timeout=60, transfer_retries=5)


@dataclass(kw_only=True)
class ProxyDefinition(Record):
    """Argument of `Session.apply_proxy`.

    proxy_user: may be empty
    proxy_password: may be empty
    proxy_port: its low 16 bits are used
    proxy_type: 0 SOCKS 5, 1 HTTP, 2 the system's configuration
    """

    proxy_host: str = ""
    proxy_user: str = ""
    proxy_password: str = ""
    proxy_port: int = 0
    proxy_type: int = 0
    _keys: ClassVar[Mapping[str, str]] = {
        "proxy_host": "proxyHost",
        "proxy_user": "proxyUser",
        "proxy_password": "proxyPassword",
        "proxy_port": "proxyPort",
        "proxy_type": "proxyType",
    }


@dataclass(kw_only=True)
class CloudFile(Record):
    """One file or directory stored in the cloud under a job.

    file_name: name, with its path below the job
    file_size: bytes as stored, that is, encrypted
    file_hash: content hash as the service reports it
    """

    job_id: str = ""
    file_name: str = ""
    file_size: int = 0
    file_date: int = 0
    file_hash: str = ""
    directory: bool = False
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobId",
        "file_name": "fileName",
        "file_size": "fileSize",
        "file_date": "fileDate",
        "file_hash": "fileHash",
        "directory": "directory",
    }
    _list_key: ClassVar[str] = "fileList"


@dataclass(kw_only=True)
class FileUploadDetails(Record):
    """An upload, as `Session.upload` returns it.

    local_file_location: full path of the file to send
    cloud_file_job_id: job to upload into
    total_file_size: bytes, as found on disk
    """

    local_file_location: str = ""
    cloud_file_job_id: str = ""
    total_file_size: int = 0
    _keys: ClassVar[Mapping[str, str]] = {
        "local_file_location": "localFileLocation",
        "cloud_file_job_id": "cloudFileJobID",
        "total_file_size": "totalFileSize",
    }


@dataclass(kw_only=True)
class ItemTag(Record):
    """A tag attached to a job.

    tag_type: category as the service names it
    """

    tag_text: str = ""
    tag_type: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "tag_text": "tagText",
        "tag_type": "tagType",
    }
    _list_key: ClassVar[str] = "itemTagList"


@dataclass(kw_only=True)
class UserDetails(Record):
    """The signed-in user.

    user_email: the sign-in identity
    """

    user_id: str = ""
    user_email: str = ""
    surname: str = ""
    forename: str = ""
    company_name: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "user_id": "userId",
        "user_email": "userEmail",
        "surname": "surname",
        "forename": "forename",
        "company_name": "companyName",
    }


@dataclass(kw_only=True)
class AccountAccess(Record):
    """The signed-in user's standing within one account.

    max_core_hour_request: core hours the user may request
    """

    account_id: str = ""
    user_email: str = ""
    max_core_hour_request: int = 0
    account_admin: bool = False
    has_mfa: bool = False
    _keys: ClassVar[Mapping[str, str]] = {
        "account_id": "accountID",
        "user_email": "userEmail",
        "max_core_hour_request": "maxCoreHourRequest",
        "account_admin": "accountAdmin",
        "has_mfa": "hasMFA",
    }


@dataclass(kw_only=True)
class AccountDetails(Record):
    """One account that the user may work under."""

    account_id: str = ""
    account_name: str = ""
    overage_enabled: bool = False
    billing_enabled: bool = False
    plan_code: str = ""
    account_created: int = 0
    account_access: AccountAccess = field(default_factory=AccountAccess)
    _keys: ClassVar[Mapping[str, str]] = {
        "account_id": "accountId",
        "account_name": "accountName",
        "overage_enabled": "overageEnabled",
        "billing_enabled": "billingEnabled",
        "plan_code": "planCode",
        "account_created": "accountCreated",
        "account_access": "accountAccess",
    }
    _list_key: ClassVar[str] = "accountDetailsList"


@dataclass(kw_only=True)
class AccountTransaction(Record):
    """One entry of an account's recent transactions.

    job_id: job charged; may be empty
    simulation_id: simulation charged; may be empty
    """

    account_id: str = ""
    transaction_id: str = ""
    job_id: str = ""
    simulation_id: str = ""
    transaction_type: str = ""
    transaction_description: str = ""
    user_email: str = ""
    user_id: str = ""
    transaction_amount: float = 0.0
    transaction_date: int = 0
    invoice_submitted: bool = False
    invoice_required: bool = False
    invoice_accepted: bool = False
    _keys: ClassVar[Mapping[str, str]] = {
        "account_id": "accountId",
        "transaction_id": "transactionId",
        "job_id": "jobId",
        "simulation_id": "simulationId",
        "transaction_type": "transactionType",
        "transaction_description": "transactionDescription",
        "user_email": "userEmail",
        "user_id": "userId",
        "transaction_amount": "transactionAmount",
        "transaction_date": "transactionDate",
        "invoice_submitted": "invoiceSubmitted",
        "invoice_required": "invoiceRequired",
        "invoice_accepted": "invoiceAccepted",
    }


@dataclass(kw_only=True)
class AccountBalance(Record):
    """An account's balance.

    core_hours_available: core hours
    """

    account_id: str = ""
    core_hours_available: float = 0.0
    recent_transactions: list[AccountTransaction] = field(default_factory=list)
    _keys: ClassVar[Mapping[str, str]] = {
        "account_id": "accountId",
        "core_hours_available": "coreHoursAvailable",
        "recent_transactions": "recentTransactions",
    }


@dataclass(kw_only=True)
class HpcDetails(Record):
    """One compute cluster.

    hpc_active: accepts jobs
    hpc_cloud: cloud provider as the service names it
    hpc_account_bucket: storage bucket of the account on that cluster
    """

    hpc_id: str = ""
    hpc_active: bool = False
    hpc_cloud: str = ""
    hpc_cluster_name: str = ""
    hpc_description: str = ""
    hpc_region: str = ""
    hpc_account_bucket: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "hpc_id": "hpcId",
        "hpc_active": "hpcActive",
        "hpc_cloud": "hpcCloud",
        "hpc_cluster_name": "hpcClusterName",
        "hpc_description": "hpcDescription",
        "hpc_region": "hpcRegion",
        "hpc_account_bucket": "hpcAccountBucket",
    }
    _list_key: ClassVar[str] = "hpcDetailsList"


@dataclass(kw_only=True)
class JobStatusEntry(Record):
    """One step of a job's status history."""

    job_id: str = ""
    job_status: str = ""
    job_status_date: int = 0
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobId",
        "job_status": "jobStatus",
        "job_status_date": "jobStatusDate",
    }


@dataclass(kw_only=True)
class SimulationStatusEntry(Record):
    """One step of a simulation's status history."""

    job_id: str = ""
    simulation_id: str = ""
    simulation_status: str = ""
    simulation_status_date: int = 0
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobId",
        "simulation_id": "simulationId",
        "simulation_status": "simulationStatus",
        "simulation_status_date": "simulationStatusDate",
    }


@dataclass(kw_only=True)
class SimulationDetails(Record):
    """One simulation of a job.

    console_parameters: solver parameters, without the service's own fixed switches
    """

    simulation_id: str = ""
    console_parameters: str = ""
    simulation_status: list[SimulationStatusEntry] = field(default_factory=list)
    _keys: ClassVar[Mapping[str, str]] = {
        "simulation_id": "simulationId",
        "console_parameters": "consoleParameters",
        "simulation_status": "simulationStatus",
    }


@dataclass(kw_only=True)
class JobDetails(Record):
    """A submitted job.

    job_name: jobs submitted by this library carry a time stamp at the end
    cores_required: per simulation
    core_hour_estimate: core hours per simulation
    ram_estimate: MB
    precision: 'single' or 'double'
    number_of_parts: processes per simulation
    file_aliases: one per dependency, in the same order
    operation: 'mpi', 'simulation', 'review' or 'build'
    """

    job_id: str = ""
    account_id: str = ""
    job_name: str = ""
    docker_tag: str = ""
    cores_required: int = 0
    core_hour_estimate: float = 0.0
    ram_estimate: int = 0
    main_file: str = ""
    precision: str = ""
    number_of_parts: int = 0
    file_dependencies: list[str] = field(default_factory=list)
    file_aliases: list[str] = field(default_factory=list)
    operation: str = ""
    simulations: list[SimulationDetails] = field(default_factory=list)
    job_status: list[JobStatusEntry] = field(default_factory=list)
    job_type: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobId",
        "account_id": "accountId",
        "job_name": "jobName",
        "docker_tag": "dockerTag",
        "cores_required": "coresRequired",
        "core_hour_estimate": "coreHourEstimate",
        "ram_estimate": "ramEstimate",
        "main_file": "mainFile",
        "precision": "precision",
        "number_of_parts": "numberOfParts",
        "file_dependencies": "fileDependencies",
        "file_aliases": "fileAliases",
        "operation": "operation",
        "simulations": "simulations",
        "job_status": "jobStatus",
        "job_type": "jobType",
    }
    _list_key: ClassVar[str] = "jobDetailsList"


@dataclass(kw_only=True)
class SimulationProgress(Record):
    """Progress of one simulation.

    progress: as the service reports it; percent with today's service
    """

    simulation_id: str = ""
    progress: int = 0
    _keys: ClassVar[Mapping[str, str]] = {
        "simulation_id": "simulationId",
        "progress": "progress",
    }


@dataclass(kw_only=True)
class JobProgress(Record):
    """Progress of all simulations of a job."""

    job_id: str = ""
    simulation_progress_list: list[SimulationProgress] = field(default_factory=list)
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobId",
        "simulation_progress_list": "simulationProgressList",
    }


@dataclass(kw_only=True)
class SimulationAbortState(Record):
    """The outcome of stopping one simulation.

    status: the service's answer for that simulation
    """

    job_id: str = ""
    simulation_id: str = ""
    status: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobID",
        "simulation_id": "simID",
        "status": "status",
    }
    _list_key: ClassVar[str] = "simulationAbortList"


@dataclass(kw_only=True)
class JobSubmit(Record):
    """A job to run. Fill the fields, then pass it to `Session.submit`, which validates it first.

    job_id: from `Session.new_job_id`
    account_id: account to charge
    job_name: without diacritics (not checked); a time stamp is appended on submission
    cores_required: per simulation, 1 to 128
    core_hour_estimate: core hours per simulation
    ram_estimate: MB, below 1800 GB
    main_file: name of a trninp, revinp or bldinp file
    job_precision: 0 single, anything else double
    solver_tag: solver image; with a blank the service chooses
    dependent_files_alias_list: one per dependent file, in the same order
    simulations: one entry per simulation: its solver parameters
    origin_application: name of the application that submits
    """

    job_id: str = ""
    account_id: str = ""
    job_name: str = ""
    cores_required: int = 0
    core_hour_estimate: float = 0.0
    ram_estimate: int = 0
    main_file: str = ""
    job_precision: int = 0
    solver_tag: str = " "
    dependent_files_list: list[str] = field(default_factory=list)
    dependent_files_alias_list: list[str] = field(default_factory=list)
    operation: JobOperation = JobOperation.MPI
    simulations: list[str] = field(default_factory=list)
    origin_application: str = ""
    _keys: ClassVar[Mapping[str, str]] = {
        "job_id": "jobID",
        "account_id": "accountID",
        "job_name": "jobName",
        "cores_required": "coresRequired",
        "core_hour_estimate": "coreHourEstimate",
        "ram_estimate": "ramEstimate",
        "main_file": "mainFile",
        "job_precision": "jobPrecision",
        "solver_tag": "solverTag",
        "dependent_files_list": "dependentFilesList",
        "dependent_files_alias_list": "dependentFilesAliasList",
        "operation": "operation",
        "simulations": "simulations",
        "origin_application": "originApplication",
    }
