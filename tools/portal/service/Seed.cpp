#include "portal/service/Lifecycle.h"
#include "portal/service/Options.h"
#include "portal/service/State.h"
#include "portal/storage/Store.h"

namespace VelmoraPortal {
namespace {

constexpr Milliseconds hour = 3600 * 1000;

Job pastJob(const std::string &id, const std::string &email, const std::string &accountId, Milliseconds submitted,
            const std::vector<std::string> &consoleParameters)
{
    Job job;
    job.id = id;
    job.email = email;
    job.accountId = accountId;
    job.dockerTag = "solver-2024.1";
    job.cores = 16;
    job.coreHourEstimate = 8;
    job.ram = 32768;
    job.precision = "double";
    job.parts = 16;
    job.operation = "mpi";
    job.application = "Velmora Desk";
    job.type = consoleParameters.size() < 2 ? "Cloud Configuration - Single Simulation"
                                            : "Cloud Configuration - Simulation Sweep";
    for (const std::string &parameters : consoleParameters) {
        Simulation simulation;
        simulation.id = "sim-" + std::to_string(job.simulations.size() + 1);
        simulation.consoleParameters = parameters;
        job.simulations.push_back(std::move(simulation));
    }
    plan(job, submitted, 2 * hour);
    return job;
}

void addFile(Store &store, const Job &job, const std::string &name, std::size_t size)
{
    const std::string path = store.freshPath();
    CipherWriter writer(path, store.key(job.id));
    std::string text;
    for (int line = 1; text.size() < size; ++line)
        text += name + ' ' + std::to_string(line) + ' ' + std::to_string(line * 7919 % 100003) + '\n';
    writer.write(text.data(), size);
    writer.commit();
    store.keep(job.id, name, path, job.history.back().date);
}

std::vector<Job> pastJobs(Milliseconds now, Store &store)
{
    const std::string ada = seededUsers()[0].email;
    const std::string ben = seededUsers()[1].email;

    Job wing = pastJob("job-wing0001", ada, "ACC-1001", now - 50 * hour, {"-x 3"});
    wing.name = "Wing-091500-120324";
    wing.mainFile = "wing.trninp";
    wing.dependencies = {"wing.mesh"};
    wing.aliases = {"mesh"};
    advance(wing, now);
    wing.tags = {{"wing", "ProjectTag"}, {"baseline", "ProjectTag"}};
    addFile(store, wing, "wing.trninp", 4096);
    addFile(store, wing, "wing.mesh", 1048576);
    addFile(store, wing, "sim-1/forces.csv", 20480);
    addFile(store, wing, "sim-1/rtg/residuals.dat", 8192);

    Job sweep = pastJob("job-duct0002", ada, "ACC-2002", now - 30 * hour, {"-v 10", "-v 20", "-v 30"});
    sweep.name = "Duct-170211-130324";
    sweep.mainFile = "duct.trninp";
    advance(sweep, now);
    sweep.history.push_back({Status::archived, now - 20 * hour});
    sweep.tags = {{"duct", "ProjectTag"}};
    addFile(store, sweep, "sim-2/pressure.csv", 5120);

    Job pump = pastJob("job-pump0003", ben, "ACC-2002", now - 10 * hour, {"-rpm 1450"});
    pump.name = "Pump-080000-140324";
    pump.mainFile = "pump.trninp";
    advance(pump, now - 9 * hour);
    std::vector<JobEvent> events;
    stop(pump, now - 9 * hour, events);
    pump.tags = {{"pump", "ProjectTag"}};
    addFile(store, pump, "pump.trninp", 2048);

    return {wing, sweep, pump};
}

} // namespace

const std::vector<SeededUser> &seededUsers()
{
    static const std::vector<SeededUser> users = {
        {"ada.field@velmora.example", "turbulence-42", ""},
        {"ben.stone@velmora.example", "boundary-layer-7", "246810"},
    };
    return users;
}

State seededState(Milliseconds now, Store &store)
{
    State state;
    const SeededUser &ada = seededUsers()[0];
    const SeededUser &ben = seededUsers()[1];
    state.users = {
        {"user-0001", ada.email, ada.password, ada.mfaCode, "Field", "Ada", "Field Aerodynamics"},
        {"user-0002", ben.email, ben.password, ben.mfaCode, "Stone", "Ben", "Stone Pumps"},
    };

    Account field;
    field.id = "ACC-1001";
    field.name = "Field Aerodynamics";
    field.planCode = "PROFESSIONAL";
    field.created = 1577836800;
    field.billingEnabled = true;
    field.overageEnabled = true;
    field.coreHours = 1234.5;
    field.access = {{ada.email, {500, true}}};
    field.preferredClusters = {"hpc-eu-1", "hpc-us-1"};
    field.transactions = {
        {"txn-0002", "job-wing0001", "JOB", "Core hours of job job-wing0001", ada.email, -8, now - 48 * hour},
        {"txn-0001", "", "PURCHASE", "Core hours bought", ada.email, 1242.5, now - 400 * hour},
    };

    Account pumps;
    pumps.id = "ACC-2002";
    pumps.name = "Stone Pumps";
    pumps.planCode = "STARTER";
    pumps.created = 1640995200;
    pumps.coreHours = 76;
    pumps.access = {{ada.email, {50, false}}, {ben.email, {100, true}}};
    pumps.preferredClusters = {"hpc-eu-1"};
    pumps.transactions = {
        {"txn-0004", "job-duct0002", "JOB", "Core hours of job job-duct0002", ada.email, -24, now - 28 * hour},
        {"txn-0003", "", "PURCHASE", "Core hours bought", ben.email, 100, now - 300 * hour},
    };
    state.accounts = {{field.id, field}, {pumps.id, pumps}};

    state.clusters = {
        {"hpc-eu-1", true, "AWS", "eu-compute", "General purpose, 128 cores a node", "eu-west-1"},
        {"hpc-us-1", true, "AWS", "us-compute", "General purpose, 96 cores a node", "us-east-1"},
        {"hpc-lab-1", false, "Private", "lab", "Under maintenance", "on-site"},
    };
    state.jobs = pastJobs(now, store);
    return state;
}

} // namespace VelmoraPortal
