#pragma once
// vqsolve reads and writes its MatrixMarket files with the model library's reader
// (models/MatrixMarket.h): its names are vqsolve's own.

#include "models/MatrixMarket.h"

namespace vqsolve {

using vqmath::models::DenseBlock;
using vqmath::models::InputError;
using vqmath::models::ReadDenseBlock;
using vqmath::models::ReadDiagonal;
using vqmath::models::ReadSymmetricMatrix;
using vqmath::models::WriteDenseBlock;

}  // namespace vqsolve
