/* What a C compiler makes of the header: the sizes of views. */
#ifndef TESTS_FLAT_INC_H
#define TESTS_FLAT_INC_H

#include <velmora/CloudAPIFlat.h>

/* C lays a structure out as C++ does when what stands for a list is as large as one. */
#define FLAT_LAYOUT                                                                                                    \
    {                                                                                                                  \
        sizeof(VelmoraAccountTransactionView), sizeof(VelmoraAccountDetailsView), sizeof(VelmoraAccountBalanceView),   \
            sizeof(VelmoraSimulationDetailsView), sizeof(VelmoraJobProgressView), sizeof(VelmoraJobDetailsView)        \
    }

#endif
