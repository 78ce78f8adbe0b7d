#pragma once

#include <cstddef>

// The system LAPACK's Fortran entry points: every argument by pointer,
// matrices column-major. Character arguments carry a hidden length each,
// passed last, as gfortran expects.
extern "C" {
void sgetrf_(const int* m, const int* n, float* a, const int* lda, int* ipiv, int* info);
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void sgetri_(const int* n, float* a, const int* lda, const int* ipiv, float* work, const int* lwork,
             int* info);
void dgetri_(const int* n, double* a, const int* lda, const int* ipiv, double* work,
             const int* lwork, int* info);
void sgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, float* a,
             const int* lda, float* s, float* u, const int* ldu, float* vt, const int* ldvt,
             float* work, const int* lwork, int* info, size_t jobuLength, size_t jobvtLength);
void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a,
             const int* lda, double* s, double* u, const int* ldu, double* vt, const int* ldvt,
             double* work, const int* lwork, int* info, size_t jobuLength, size_t jobvtLength);
}
