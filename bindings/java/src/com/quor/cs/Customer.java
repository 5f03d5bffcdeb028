package com.quor.cs;

import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * The customer's information sent with the handshake: userInfo (userId, nickName, loginName,
 * name, grade, gender, birthday, age, profession, portraitUrl, province, city, memo),
 * contactInfo (mobileNo, email, address, QQ, weibo, weixin) and requestInfo (page, referrer,
 * enterUrl, skillId, listUrl, define, productId). Every field is optional.
 */
public final class Customer {
  private final Map<String, Map<String, Object>> sections = new LinkedHashMap<>();

  public Customer userInfo(String key, String value) {
    return put("userInfo", key, value);
  }

  public Customer contactInfo(String key, String value) {
    return put("contactInfo", key, value);
  }

  public Customer requestInfo(String key, String value) {
    return put("requestInfo", key, value);
  }

  /** requestInfo's listUrl: the pages the customer came through. */
  public Customer listUrl(List<String> urls) {
    return put("requestInfo", "listUrl", urls);
  }

  private Customer put(String section, String key, Object value) {
    sections.computeIfAbsent(section, s -> new LinkedHashMap<>()).put(key, value);
    return this;
  }

  String toJson() {
    return Json.write(sections);
  }
}
