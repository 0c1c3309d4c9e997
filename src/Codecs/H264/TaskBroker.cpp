#include "Codecs/H264/TaskBroker.h"

namespace MCL {

void TaskBroker::FinishPicture(H264PictureTask& task) {
  NmH264::DeblockPicture(*task.picture, task.filters);
  task.picture->ExtendBorders();
}

void TaskBrokerSingleThread::DecodePicture(H264PictureTask& task) {
  m_Decoders.front()->DecodeSlices(task, 0, task.slices->size());
  FinishPicture(task);
}

} // namespace MCL
