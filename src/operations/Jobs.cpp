#include "operations/Jobs.h"

namespace Velmora {

std::optional<ApiError> Jobs::refusalOf(const JobSubmit &job)
{
    std::list<JobSubmitError> failures;
    if (job.validate(&failures))
        return {};
    ApiError refusal{400, Endpoints::JobSubmit.title, "Bad Job Definition \n"};
    for (const JobSubmitError failure : failures)
        refusal.errorMessage += JobSubmit::errorMessage(failure) + '\n';
    refusal.errorMessage += "\nValidate Job again.";
    return refusal;
}

} // namespace Velmora
