#include "host/SCA_PathField.h"

#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

int SCA_SetPathField(char* field, unsigned long size, const char* value,
                     const SCA_Reporter& reporter) {
  if (SCA_CopyText(field, size, value, SCA_TextFit::Refuse) != 0) return 1;
  return SCA_Complain(reporter.source, __LINE__, SCA_LevelError,
                      "%s: refused a value of more than %lu bytes - %s", reporter.operation,
                      size - 1, value);
}

int SCA_ReadPathField(const SCA_ConfigObj& object, const char* name, char* field,
                      unsigned long size, const SCA_Reporter& reporter) {
  SCA_Field* member = nullptr;
  if (object.GetFieldByName(name, &member) == 0 || member->GetType() != SCA_FieldTypePlain) {
    return 1;
  }
  return SCA_SetPathField(field, size, member->GetValue(), reporter);
}

int SCA_CheckFileType(const SCA_ConfigObj* object, unsigned long expected,
                      const SCA_Reporter& reporter) {
  unsigned long fileType = 0;
  if (object == nullptr || object->GetField("FileType", &fileType) == 0) {
    return SCA_Complain(reporter.source, __LINE__, SCA_LevelError,
                        "%s: cannot get the config file type", reporter.operation);
  }
  if (fileType == expected) return 1;
  return SCA_Complain(reporter.source, __LINE__, SCA_LevelError,
                      "%s: the config file type mismatch, expected %lu, actual %lu",
                      reporter.operation, expected, fileType);
}
