// The whole public toolkit API.
#ifndef T2SFST_FST_H
#define T2SFST_FST_H

#include "FSTAllocator.h"
#include "FSTBackoff.h"
#include "FSTBasic.h"
#include "FSTBinary.h"
#include "FSTCache.h"
#include "FSTCacheLRU.h"
#include "FSTClosure.h"
#include "FSTCompose.h"
#include "FSTConcatenate.h"
#include "FSTDeterminize.h"
#include "FSTGeneric.h"
#include "FSTInvert.h"
#include "FSTJsgf.h"
#include "FSTJsgfImport.h"
#include "FSTLazy.h"
#include "FSTLoad.h"
#include "FSTMinimize.h"
#include "FSTMmap.h"
#include "FSTOptimize.h"
#include "FSTPushWeights.h"
#include "FSTRemoveEpsilons.h"
#include "FSTRtn.h"
#include "FSTSemiring.h"
#include "FSTShortestPath.h"
#include "FSTStringMap.h"
#include "FSTTopologicalSort.h"
#include "FSTUnion.h"
#include "FSTlib.h"

#endif
