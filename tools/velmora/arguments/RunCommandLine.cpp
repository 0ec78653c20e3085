#include "arguments/CommandLine.h"

#include "arguments/Help.h"

namespace Velmora::Cli {

void CommandLine::addRunCommands()
{
    const auto addAccount = [this](CLI::App &sub) {
        sub.add_option("--account", m_options.accountId, "Account to charge")->type_name("ID");
    };
    const auto addCluster = [this](CLI::App &sub) {
        sub.add_option("--hpc", m_options.hpcId, "Cluster to run on; the service chooses unless given")
            ->type_name("ID");
    };
    const auto addYes = [this](CLI::App &sub) {
        sub.add_flag("--yes", m_options.yes, "Submit also what the account's core hours do not suffice for");
    };
    const auto addSweep = [this](CLI::App &sub) {
        sub.add_option("--each", m_options.each, "A simulation for each combination of the values in braces")
            ->type_name("PARAMETERS");
    };
    const auto addTable = [this](CLI::App &sub) {
        return sub.add_option("--csv", m_options.csvFile, "Write a table of the simulations' summaries")
            ->type_name("FILE");
    };

    CLI::App *sub = add("run", "Upload a job's files, run it, download its results", Help::Run, run);
    addJobFile(*sub);
    addAccount(*sub);
    addCluster(*sub);
    addFolder(*sub);
    addSweep(*sub);
    CLI::Option *table = addTable(*sub);
    sub->add_flag("--again", m_options.again, "Start a new job, whatever an earlier run has done");
    CLI::Option *noWait = sub->add_flag("--no-wait", m_options.noWait, "Leave when the job is submitted");
    sub->add_flag("--no-upload", m_options.noUpload, "Upload nothing; the job needs no local files");
    CLI::Option *noDownload = sub->add_flag("--no-download", m_options.noDownload, "Leave the results at the service");
    table->excludes(noWait)->excludes(noDownload);
    sub->add_option("--journal", m_options.journal, "File of what is done; JOB.json.journal unless given")
        ->type_name("FILE");
    addYes(*sub);
    addSpeed(*sub);
    addPatience(*sub);

    sub = add("watch", "Follow a job to its end", Help::Watch, watch);
    addJobId(*sub);
    CLI::Option *folder = sub->add_option("--to", m_options.folder, "Fetch the results to this folder at the end");
    folder->type_name("DIR");
    addTable(*sub)->needs(folder);
    addSpeed(*sub);
    addPatience(*sub);

    sub = add("new", "Reserve a job id, to upload inputs to", Help::New, newJob);
    addAccount(*sub);
    addCluster(*sub);
    sub = add("submit", "Submit a job whose inputs are uploaded", Help::Submit, submit);
    addJobFile(*sub);
    sub->add_option("--job", m_options.jobId, "Job id that the inputs were uploaded to")->type_name("ID")->required();
    addAccount(*sub);
    addSweep(*sub);
    addYes(*sub);
    sub = add("validate", "Check a job file", Help::Validate, validate);
    addJobFile(*sub);
    addSweep(*sub);
}

} // namespace Velmora::Cli
