#include "Codecs/H264/TaskBroker.h"

#include "Codecs/H264/Concealment.h"

namespace MCL {

void TaskBroker::FinishPicture(H264PictureTask& task) {
  task.concealed = NmH264::ConcealMissingMacroblocks(*task.picture, *task.references);
  NmH264::DeblockPicture(*task.picture, task.filters);
  task.picture->ExtendBorders();
}

void TaskBrokerSingleThread::DecodePicture(H264PictureTask& task) {
  m_Decoders.front()->DecodeSlices(task, 0, task.slices->size());
  FinishPicture(task);
}

} // namespace MCL
