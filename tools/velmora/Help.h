/// @file Help.h
/// The help texts of the program and its commands.
#ifndef VELMORA_CLI_HELP_H
#define VELMORA_CLI_HELP_H

namespace Velmora::Cli::Help {

inline constexpr const char *Program = R"(Exit codes:
  0    done; for run and watch: the job finished
  1    the service refused, or a file was not transferred
  2    wrong use: bad arguments, a job file that is not valid, a local file that cannot be read
  3    no connection to the service
  4    the job ended without finishing (stopped, failed)
  130  interrupted by Ctrl-C; transfers are cancelled, a submitted job goes on at the service

Environment:
  VELMORA_USER      e-mail address to sign in with
  VELMORA_PASSWORD  password; asked for on the terminal when it is not set
  VELMORA_MFA       one-time code for users with multi-factor authentication
  VELMORA_API_URL   HOST[:PORT] of the service, as --host

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
submitted when all of them have arrived. When it has ended, finished or not, its results are downloaded,
each simulation's files into a folder of their own. Ctrl-C cancels transfers and lists what is left, but
leaves a submitted job running and prints the command to watch it again.

Example:
  velmora run examples/jobs/beam-single.json --account ACCOUNT)";

inline constexpr const char *Watch = R"(Follows a submitted job until it ends, as run does. Its results stay at the
service; "velmora download JOB" downloads them. Ctrl-C leaves the job running.)";

inline constexpr const char *Files =
    R"(Without JOB: the files of all your jobs. With SIMULATION: the files of that simulation only.)";

inline constexpr const char *Upload =
    R"(Files are encrypted with the job's key on this machine. The name in the cloud is the file's name
without its folder. A file of the same name that the job already has is replaced.)";

inline constexpr const char *Download =
    R"(FILE is a name as "velmora files JOB" lists it, a folder such as a simulation, or a pattern with *, ?
or [...] for the whole name or its last part; put patterns in quotes. Without FILE all files are downloaded,
including the inputs. They keep their paths below the job, so that files of the same name in several
simulations stay separate. A local file of that name is replaced when its download is complete.

Examples:
  velmora download job-1f2e3d4c
  velmora download job-1f2e3d4c sim-1 'summary.*' --to results)";

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
    R"(Checks that the credentials are accepted. Nothing is stored: every command signs in
by itself, with VELMORA_USER and VELMORA_PASSWORD or by asking on the terminal.)";

} // namespace Velmora::Cli::Help

#endif
