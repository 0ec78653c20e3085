/// @file Help.h
/// The help texts of the program and its commands.
#ifndef VELMORA_CLI_HELP_H
#define VELMORA_CLI_HELP_H

namespace Velmora::Cli::Help {

inline constexpr const char *Program = R"(Exit codes:
  0    done; for run and watch: the job finished (with --no-wait: it is submitted)
  1    the service refused, or a file was not transferred
  2    wrong use: bad arguments, a job file that is not valid or has changed, a local file that cannot be
       read, too few core hours
  3    no connection to the service
  4    the job ended without finishing (stopped, failed)
  130  interrupted by Ctrl-C; transfers are cancelled, a submitted job goes on at the service

Environment:
  VELMORA_USER        e-mail address to sign in with
  VELMORA_PASSWORD    password; asked for on the terminal when it is not set
  VELMORA_MFA         one-time code for users with multi-factor authentication
  VELMORA_API_URL     HOST[:PORT] of the service, as --host
  VELMORA_PROFILE     profile of the configuration file, as --profile
  VELMORA_CONFIG_DIR  folder of the configuration file and of who is signed in

Results go to standard output, progress and messages to standard error.
"velmora COMMAND --help" explains a command.)";

inline constexpr const char *Run = R"(JOB.json is an object with these keys:
  jobName                  name shown in lists; a time stamp is added to it
  mainFile                 main input file (trninp, revinp or bldinp)
  dependentFilesList       further input files; paths start at the folder of JOB.json
  dependentFilesAliasList  one alias for each of them, in the same order
  operation                0 MPI, 1 simulation, 2 review, 3 build
  simulations              solver parameters, one text per simulation
  numberOfParts            MPI: processes per simulation
  coresRequired            otherwise: cores per simulation, 1 to 128
  coreHourEstimate         core hours per simulation
  ramEstimate              memory in MB, below 1843200
  jobPrecision             0 single, 1 double
  solverTag                solver image; leave it out to let the service choose
  accountID                account to charge; --account wins over it
  originApplication        submitting application, "velmora" unless given
The job id is filled in. The main file and the further input files are uploaded first, and the job is
submitted when all of them have arrived. Before that the estimate is compared with the account's core hours;
where they do not suffice you are asked, or --yes is needed. When the job has ended, finished or not, its
results are downloaded, each simulation's files into a folder of their own. Ctrl-C cancels transfers and
lists what is left, but leaves a submitted job running.

What is done is noted in a journal beside the job file. The same command goes on from there, however the
last one ended: inputs that did not change (by size and time, or by content) are not sent again, a submitted
job is followed and never submitted twice, results that are here as they were fetched are not fetched again.
When all is done, it says so. A job file or an input that changed after the submission is an error; --again
starts a new job. Two runs of one job file at a time need a --journal each.

--each gives the simulations in place of the job file: one for each combination of the values in braces,
{FROM..TO}, {FROM..TO..STEP} or {A,B,C}. --csv writes a table with a line for each simulation: its status,
its parameters, and what its summary.json says.

Examples:
  velmora run examples/jobs/beam-single.json --account ACCOUNT
  velmora run beam.json --each '-load {8..16..2} -steps {200,400}' --csv beam.csv)";

inline constexpr const char *Watch = R"(Follows a submitted job until it ends, as run does. With --to its results are
downloaded then; without, they stay at the service. Ctrl-C leaves the job running.)";

inline constexpr const char *New = R"(Prints the id. The steps of "velmora run" one by one:
  velmora new --account ACCOUNT
  velmora upload JOB FILE...
  velmora submit JOB.json --job JOB --account ACCOUNT
  velmora watch JOB --to DIR)";

inline constexpr const char *Submit = R"(The inputs that the job file names must be uploaded to the job; their names
count without folders. Prints the submitted job and does not wait for it. "velmora run --help" describes
the job file and --each, "velmora new --help" the steps before and after.)";

inline constexpr const char *Files =
    R"(Without JOB: the files of all your jobs. With SIMULATION: the files of that simulation only.)";

inline constexpr const char *Upload =
    R"(Files are encrypted with the job's key on this machine. The name in the cloud is the file's name
without its folder, for the service keeps uploads without folders: two files of one name are refused before
anything is sent. A file of the same name that the job already has is replaced.

Example:
  velmora upload job-1f2e3d4c wing.trninp meshes/)";

inline constexpr const char *Download =
    R"(PATTERN is a name as "velmora files JOB" lists it, a folder such as a simulation, or a pattern with *, ?
or [...] for the whole name or its last part; put patterns in quotes. Without PATTERN all files are downloaded,
including the inputs. They keep their paths below the job, so that files of the same name in several
simulations stay separate. A local file of that name is replaced when its download is complete. It gets the date that the file has in the cloud.

Examples:
  velmora download job-1f2e3d4c
  velmora download job-1f2e3d4c sim-1 'summary.*' --to results)";

inline constexpr const char *Sync =
    R"(velmora sync DIR JOB:   uploads what differs, by name without folder as upload does
velmora sync JOB: DIR   downloads what differs, with its path below the job

The service tells a file's stored size and its date. A file is left as it is when its size fits and
  sync DIR JOB:   it was not changed here after the date in the cloud (both clocks must be right),
  sync JOB: DIR   it has the date in the cloud here, which sync and download give it.
Results below DIR, under the path that the job has them, are never uploaded. With --delete, what FROM does not
have is deleted from TO when all else has arrived, after a question; a job's results are not.

Examples:
  velmora sync inputs job-1f2e3d4c: --dry-run
  velmora sync job-1f2e3d4c: results)";

inline constexpr const char *Rm =
    R"(Files that are named in full are deleted at once. What a pattern or a folder selects is listed first,
and a question asked. Without --recursive a pattern matches whole names outside folders.

Example:
  velmora rm job-1f2e3d4c 'sim-1/*.dat' --yes)";

inline constexpr const char *Stop = R"(Without SIMULATION: every simulation of the job is stopped.)";

inline constexpr const char *Validate =
    R"(Runs every check on a job file and names each one that fails. Nothing is sent.
Exit code 0 when all pass, 2 otherwise.)";

inline constexpr const char *Me =
    R"(With one of the options the details are changed first; the others stay as they are.

Example:
  velmora me --company 'Field Aerodynamics')";

inline constexpr const char *Event =
    R"(Events tell the service what its users do, such as TYPE "open" of SOURCE "mesher".)";

inline constexpr const char *Tags = R"(Without JOB and --account: the tags of all your accounts.)";

inline constexpr const char *Find = R"(Lists your jobs that carry all of these tags.)";

inline constexpr const char *Login =
    R"(Asks for the password, and for a one-time code where one is needed, and keeps what the
service gives for later sign-ins in a file that only you can read. All commands use it, for the same host, until
it expires or "velmora logout". The password itself is not kept. Without it a command signs in by itself, with
VELMORA_USER and VELMORA_PASSWORD or by asking on the terminal.

Example:
  pass show velmora | velmora login --user EMAIL --password-stdin)";

inline constexpr const char *Logout =
    R"(Removes the file that "velmora login" wrote, for --user or who signed in last. Nothing is sent.)";

inline constexpr const char *Config =
    R"(Keys are names of options: account, bwlimit, ca, host, hpc, portal, timeout, to, transfers, user. Arguments
win over the environment, that over a profile, and that over what holds for all commands. With --profile, set
changes that profile, and makes it where there is none. No value makes a command do more: watch fetches nothing
without --to, tags lists the tags of all accounts without --account.

Examples:
  velmora config set user ada@example.com
  velmora config set host lab.example.com:8443 --profile lab
  velmora jobs --profile lab)";

} // namespace Velmora::Cli::Help

#endif
