/* What a C compiler makes of the header: the address of every export, the sizes of views. */
#ifndef TESTS_FLAT_INC_H
#define TESTS_FLAT_INC_H

#include <stddef.h>

#include <velmora/CloudAPIFlat.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*FlatAddress)(void);
extern const FlatAddress flatAddressesInC[];
extern const size_t flatLayoutInC[];

#ifdef __cplusplus
}
#endif

/* C lays a structure out as C++ does when what stands for a list is as large as one. */
#define FLAT_LAYOUT                                                                                                    \
    {                                                                                                                  \
        sizeof(VelmoraAccountTransactionView), sizeof(VelmoraAccountDetailsView), sizeof(VelmoraAccountBalanceView),   \
            sizeof(VelmoraSimulationDetailsView), sizeof(VelmoraJobProgressView), sizeof(VelmoraJobDetailsView)        \
    }

#endif
